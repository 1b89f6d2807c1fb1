#include "sim/server/loader_order_watch.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <set>
#include <span>

#include "sim/firmware/handle_database.h"
#include "sim/server/boot_recorder.h"
#include "sim/server/load_option_view.h"

namespace sim {
namespace {

constexpr const char* kReview = "AdjustEfiOsBootOrder";

std::vector<OptionReport> Listed(const VariableStore& store) {
  std::vector<std::uint16_t> order;
  std::vector<OptionReport> options = ReportOptions(store, order);
  std::set<std::uint16_t> seen;
  std::erase_if(options, [&seen](const OptionReport& option) {
    return !option.inOrder || !option.readable || !seen.insert(option.number).second;
  });
  return options;
}

bool IsLoader(const OptionReport& option) {
  return option.device.starts_with("HD(") && option.device.find("/\\") != std::string::npos;
}

bool SameLoader(const OptionReport& a, const OptionReport& b) {
  return std::ranges::equal(a.device, b.device, [](unsigned char one, unsigned char other) {
    return std::tolower(one) == std::tolower(other);
  });
}

// Its partition, known by number and signature: the front of its text, "HD(number,kind,signature,".
bool IsThere(const OptionReport& option, const HandleDatabase& handles) {
  const std::string& text = option.device;
  std::size_t end = 0;
  for (int comma = 0; comma < 3 && end != std::string::npos; ++comma) {
    end = text.find(',', end + 1);
  }
  const std::string partition = "/" + text.substr(0, end);
  return std::ranges::any_of(handles.All(), [&](EFI_HANDLE handle) {
    const auto* path = handles.Get<EFI_DEVICE_PATH_PROTOCOL>(handle);
    return path != nullptr && DevicePathToUtf8(DevicePath::Copy(path)).find(partition + ",") != std::string::npos;
  });
}

// Numbers may be given anew, and a mask comes and goes.
bool SameOption(const OptionReport& a, const OptionReport& b) { return a.name == b.name && a.device == b.device; }

bool Holds(std::span<const OptionReport> options, const OptionReport& option) {
  return std::ranges::any_of(options, [&option](const OptionReport& other) { return SameOption(other, option); });
}

// Something that stood behind it alone before stands in front of it now; a double may have stood on both sides.
bool WasOvertaken(std::span<const OptionReport> before, std::size_t from, std::span<const OptionReport> now,
                  std::size_t to) {
  return std::ranges::any_of(now.first(to), [&](const OptionReport& option) {
    return Holds(before.subspan(from + 1), option) && !Holds(before.first(from + 1), option);
  });
}

}  // namespace

void LoaderOrderWatch::OnStep(const std::string& step, const VariableStore& store, const HandleDatabase& handles) {
  if (step == kReview) {
    reviewed_ = Listed(store);
    before_ = reviewed_;
    return;
  }
  const std::vector<OptionReport> now = reviewed_.empty() ? std::vector<OptionReport>{} : Listed(store);
  for (const OptionReport& option : reviewed_) {
    if (std::ranges::find(now, option.number, &OptionReport::number) == now.end()) {
      const auto twin =
          std::ranges::find_if(now, [&option](const OptionReport& other) { return SameLoader(option, other); });
      deleted_.push_back({option.number, option.name,
                          twin == now.end() || !IsThere(option, handles)
                              ? "its partition is gone"
                              : fmt::format("Boot{:04X} starts the same loader", twin->number)});
    }
  }
  reviewed_.clear();
}

void LoaderOrderWatch::AddDeleted(std::vector<DeletedOption>& deleted) const {
  for (const DeletedOption& option : deleted_) {
    const auto known = std::ranges::find(deleted, option.number, &DeletedOption::number);
    if (known != deleted.end()) {
      known->reason = option.reason;
    } else {
      deleted.push_back(option);
    }
  }
}

std::vector<LoaderMove> LoaderOrderWatch::Moved(const VariableStore& store) const {
  std::vector<LoaderMove> moved;
  const std::vector<OptionReport> now = Listed(store);
  for (std::size_t from = 0; from < before_.size(); ++from) {
    const auto same = [&option = before_[from]](const OptionReport& other) { return SameOption(option, other); };
    const auto found = std::ranges::find_if(now, same);
    const auto to = static_cast<std::size_t>(found - now.begin());
    const bool candidate = IsLoader(before_[from]) && !before_[from].firmware && found != now.end();
    if (candidate && WasOvertaken(before_, from, now, to)) {
      moved.push_back({before_[from].number, found->name, found->number, from + 1, to + 1});
    }
  }
  return moved;
}

}  // namespace sim
