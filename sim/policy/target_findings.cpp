#include "sim/policy/target_findings.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cstring>

namespace sim {
namespace {

using bds::TargetElement;
using bds::TargetType;
using enum FindingKind;

// Types that select by this element and by nothing else.
struct NeededElement {
  TargetType type;
  TargetElement element;
};
constexpr NeededElement kNeeded[] = {
    {TargetType::OnboardHDD, TargetElement::HDDSlot},
    {TargetType::USB, TargetElement::USBSubType},
    {TargetType::VirtualMedia, TargetElement::VMSubType},
};

// The engine takes these types once in a policy.
constexpr TargetType kOnceOnly[] = {TargetType::LANAny, TargetType::SANAny, TargetType::NVMEAny,
                                    TargetType::LocalStorageAny};

// Elements that are kept in the record and compared with no device, whatever the type; the SD card's unit excepted.
constexpr TargetElement kNotCompared[] = {TargetElement::ControllerId, TargetElement::LunId, TargetElement::WWNN,
                                          TargetElement::Shell};

// Types that leave options which they do not concern as they are, so that a loader's comparison selects those too.
constexpr TargetType kLeavesOthers[] = {
    TargetType::LocalStorageAny, TargetType::OnboardHDD,    TargetType::OnboardHDDAny, TargetType::USB,
    TargetType::InternalUSB,     TargetType::SDCard,        TargetType::VirtualMedia,  TargetType::IXMOVMediaCDD,
    TargetType::KVMVMediaCDD,    TargetType::IXMOVMediaHDD, TargetType::KVMVMediaHDD,  TargetType::IXMOVMediaFDD,
    TargetType::KVMVMediaFDD,    TargetType::UefiShell,
};

// The largest number that the engine takes; it passes the element over when there is a larger one.
struct NumberLimit {
  TargetElement element;
  std::uint64_t largest;
};
constexpr NumberLimit kLimits[] = {
    {TargetElement::PciClassId, 254}, {TargetElement::PciSlotId, 254}, {TargetElement::PortNum, 254},
    {TargetElement::HDDSlot, 254},    {TargetElement::LunId, 254},
};
// The engine takes 255 for no number at all.
constexpr TargetElement kIds[] = {TargetElement::PciVid, TargetElement::PciDid, TargetElement::PciSubVid,
                                  TargetElement::PciSubDid};
constexpr std::uint64_t kNoId = 255;
constexpr std::uint64_t kNoSlot = 255;  // what a word becomes that names a slot of other servers

bool IsPortName(const std::string& text) {
  constexpr std::size_t kLength = 23;  // eight numbers of two digits with ':' between them
  if (text.size() != kLength) {
    return false;
  }
  for (std::size_t at = 0; at < text.size(); ++at) {
    const auto character = static_cast<unsigned char>(text[at]);
    if (at % 3 == 2 ? character != ':' : std::isxdigit(character) == 0) {
      return false;
    }
  }
  return true;
}

bool HasLoader(std::span<const LoaderText> loaders, std::string_view end) {
  return std::ranges::any_of(loaders, [&](const LoaderText& text) { return text.name.ends_with(end); });
}

}  // namespace

const bds::LayoutField* FindLayoutField(TargetType type, TargetElement element) {
  for (const auto& fields : {bds::TypeRow(type).Pci, bds::TypeRow(type).Fields}) {
    const auto found = std::ranges::find(fields, element, &bds::LayoutField::Element);
    if (found != fields.end()) {
      return &*found;
    }
  }
  return nullptr;
}

std::string ElementToken(TargetElement element) {
  const auto row = std::ranges::find(bds::kTargetElements, element, &bds::TargetElementRow::Id);
  return row == std::end(bds::kTargetElements) ? "?" : row->Token;
}

void TargetJudge::Say(FindingKind kind, TargetElement element, std::string text) {
  findings_.push_back({kind, element, std::move(text)});
}

bool TargetJudge::Given(TargetElement element) const {
  const bds::LayoutField* field = FindLayoutField(type_, element);
  return field != nullptr && field->How != bds::Conversion::ReportName &&
         target_->Data[field->Offset + field->Size] != 0;
}

std::uint64_t TargetJudge::Number(TargetElement element) const {
  const bds::LayoutField* field = FindLayoutField(type_, element);
  std::uint64_t number = 0;
  if (field != nullptr) {
    std::memcpy(&number, target_->Data + field->Offset, std::min<std::size_t>(field->Size, sizeof(number)));
  }
  return number;
}

std::string TargetJudge::TextOf(TargetElement element) const {
  const bds::LayoutField* field = FindLayoutField(type_, element);
  const auto* text = reinterpret_cast<const char*>(target_->Data + field->Offset);
  return {text, strnlen(text, field->Size)};
}

void TargetJudge::JudgeKind() {
  const char* word = bds::TypeRow(type_).Word;
  for (const NeededElement& needed : kNeeded) {
    if (type_ == needed.type && !Given(needed.element)) {
      Say(Warning, TargetElement::Unknown,
          fmt::format("selects nothing: a {} target selects by {}>", word, ElementToken(needed.element)));
    }
  }
  if (std::ranges::find(kOnceOnly, type_) != std::end(kOnceOnly) && !seen_.insert(type_).second) {
    Say(Warning, TargetElement::Unknown,
        fmt::format("selects nothing: a policy's first {} target is its only one", word));
  }
  if (type_ == TargetType::LocalFDD && uefi_) {
    Say(Warning, TargetElement::Unknown, "selects nothing: floppy drives boot in legacy mode only");
  }
  if (type_ == TargetType::IXMOVMediaFDD) {
    Say(Note, TargetElement::Unknown, "selects nothing: the BMC of this platform has no virtual floppy drive");
  }
}

void TargetJudge::JudgeIgnored() {
  for (const TargetElement element : kNotCompared) {
    if (Given(element) && !(type_ == TargetType::SDCard && element == TargetElement::LunId)) {
      Say(Note, element, fmt::format("{}: kept in the record; no device is compared with it", ElementToken(element)));
    }
  }
  if (Given(TargetElement::WWPN)) {
    Say(Warning, TargetElement::WWPN,
        "<WWPN: no device is compared with it; the port name of the storage array belongs into <PrimaryTargetWWPN>");
  }
  if (Given(TargetElement::MACAddress) && legacy_) {
    Say(Warning, TargetElement::MACAddress, "<MACAddress: compared in UEFI boots only");
  }
}

void TargetJudge::JudgeNumbers() {
  for (const NumberLimit& limit : kLimits) {
    if (!Given(limit.element) || Number(limit.element) <= limit.largest) {
      continue;
    }
    const bool word = limit.element == TargetElement::PciSlotId;
    Say(Warning, limit.element,
        fmt::format("{}: {}, and the target is selected as if it were not given", ElementToken(limit.element),
                    word ? "names a slot that this platform does not have" : "larger than what the engine takes"));
  }
  for (const TargetElement element : kIds) {
    if (Given(element) && Number(element) == kNoId) {
      Say(Warning, element,
          fmt::format("{}: ff is taken for no number; the target is selected as if it were not given",
                      ElementToken(element)));
    }
  }
  if (Given(TargetElement::PrimaryTargetWWPN) && !IsPortName(TextOf(TargetElement::PrimaryTargetWWPN))) {
    Say(Warning, TargetElement::PrimaryTargetWWPN,
        fmt::format("<PrimaryTargetWWPN: \"{}\" is no port name; expected eight two-digit hexadecimal numbers with ':' "
                    "between them",
                    TextOf(TargetElement::PrimaryTargetWWPN)));
  }
}

// Of network and SAN targets: which adapter is meant.
void TargetJudge::JudgeAdapter() {
  const bool san = type_ == TargetType::SAN;
  const TargetElement order = san ? TargetElement::VhbaOrder : TargetElement::VnicOrder;
  const TargetElement slot = TargetElement::PhysicalAdaptorSlotNum;
  if (Given(slot) && Number(slot) >= kNoSlot) {
    Say(Warning, slot, "<PhysicalAdaptorSlotNum: names a slot that this platform does not have");
  }
  const bool virtualAdapter = Given(TargetElement::VeyraOrla) && Number(TargetElement::VeyraOrla) == 1;
  if (virtualAdapter && (!Given(order) || !Given(slot))) {
    Say(Warning, TargetElement::VeyraOrla,
        fmt::format("<VeyraOrla: a virtual adapter is found by {}> and <PhysicalAdaptorSlotNum>, both of them",
                    ElementToken(order)));
  }
  if (!virtualAdapter && Given(order)) {
    Say(Warning, order,
        fmt::format("{}: counts for virtual adapters, <VeyraOrla value=\"yes\" />, only", ElementToken(order)));
  }
  if (!virtualAdapter && Given(TargetElement::PciAddress)) {
    Say(Note, TargetElement::PciAddress,
        "<PciAddress: on a server under the central manager the bus is not compared; <PhysicalAdaptorSlotNum> says "
        "where");
  }
}

void TargetJudge::JudgeLoaders(std::span<const LoaderText> loaders) {
  if (loaders.empty()) {
    return;
  }
  if (legacy_) {
    Say(Warning, TargetElement::Unknown, "its loaders are not looked for: they are of UEFI boots");
  }
  if (std::ranges::find(kLeavesOthers, type_) != std::end(kLeavesOthers)) {
    Say(Warning, TargetElement::Unknown,
        fmt::format("takes its loaders from any disk: {} refuses nothing else, as LocalHDD and NVMEAny do",
                    bds::TypeRow(type_).Word));
  }
  if (!HasLoader(loaders, "BootLoaderPath") && !HasLoader(loaders, "BootLoaderName")) {
    Say(Warning, TargetElement::Unknown,
        "says where a loader lies but names none: add <BootLoaderPath> or <BootLoaderName>");
  }
  if (!HasLoader(loaders, "Pri BootLoaderPath") && !HasLoader(loaders, "Pri BootLoaderName") &&
      std::ranges::any_of(loaders, [](const LoaderText& text) { return text.name.starts_with("Sec "); })) {
    Say(Warning, TargetElement::Unknown, "a secondary loader counts beside a primary one only");
  }
}

std::vector<TargetFinding> TargetJudge::Judge(const FLEXBOOT_TARGET& target, std::span<const LoaderText> loaders) {
  target_ = &target;
  type_ = static_cast<TargetType>(target.Type);
  findings_.clear();
  JudgeKind();
  JudgeIgnored();
  JudgeNumbers();
  if (FindLayoutField(type_, TargetElement::PhysicalAdaptorSlotNum) != nullptr) {
    JudgeAdapter();
  }
  JudgeLoaders(loaders);
  return std::move(findings_);
}

}  // namespace sim
