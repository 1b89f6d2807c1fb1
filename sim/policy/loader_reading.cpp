#include "sim/policy/loader_reading.h"

#include <algorithm>

#include "flexboot/policy_format.h"
#include "flexboot/xml_cursor.h"

namespace sim {
namespace {

constexpr const char* kValueTokens[] = {bds::kPartitionGuidToken, bds::kLoaderPathToken, bds::kLoaderNameToken,
                                        bds::kLoaderDeviceNameToken};
struct SanGroup {
  const char* begin;
  const char* end;
  const char* prefix;
};
constexpr SanGroup kSanGroups[] = {
    {bds::kPrimaryLoaderGroup, bds::kPrimaryLoaderGroupEnd, "Pri "},
    {bds::kSecondaryLoaderGroup, bds::kSecondaryLoaderGroupEnd, "Sec "},
};

template <typename Same>
bool IsOneOf(const Same& same) {
  return std::ranges::any_of(kValueTokens, same) ||
         std::ranges::any_of(kSanGroups, [&](const SanGroup& group) { return same(group.begin) || same(group.end); });
}

class Reader {
 public:
  explicit Reader(std::span<const PolicyToken> tokens) : tokens_(tokens) {}

  LoaderReading Read() {
    const PolicyToken* token = Next();
    for (; token != nullptr && token->name != bds::kTargetGroupEnd; token = Next()) {
      const auto group = std::ranges::find_if(kSanGroups, [&](const SanGroup& g) { return token->name == g.begin; });
      if (group == std::end(kSanGroups)) {
        Keep(*token, "");
      } else if (!ReadGroup(*group)) {
        reading_.missing = group->end;
        return reading_;
      }
    }
    reading_.missing = token == nullptr ? bds::kTargetGroupEnd : nullptr;
    return reading_;
  }

 private:
  const PolicyToken* Next() { return next_ < tokens_.size() ? &tokens_[next_++] : nullptr; }

  bool ReadGroup(const SanGroup& group) {
    const PolicyToken* token = Next();
    for (; token != nullptr && token->name != group.end; token = Next()) {
      if (token->name != bds::kPartitionGuidToken) {
        Keep(*token, group.prefix);
      }
    }
    return token != nullptr;
  }

  void Keep(const PolicyToken& token, const char* prefix) {
    const auto known = [&](const char* name) { return token.name == name; };
    if (token.value.empty() || std::ranges::none_of(kValueTokens, known)) {
      return;
    }
    const bool path = token.name == bds::kLoaderPathToken;
    reading_.texts.push_back({prefix + token.name.substr(1), path ? NormalLoaderPath(token.value) : token.value});
  }

  std::span<const PolicyToken> tokens_;
  std::size_t next_ = 0;
  LoaderReading reading_;
};

}  // namespace

LoaderReading ReadLoaders(std::span<const PolicyToken> tokens) { return Reader(tokens).Read(); }

bool IsLoaderToken(const PolicyToken& token) {
  return IsOneOf([&](const char* name) { return bds::XmlStriCmp(token.name.c_str(), name) == 0; });
}

bool IsExactLoaderToken(const PolicyToken& token) {
  return IsOneOf([&](const char* name) { return token.name == name; });
}

std::string NormalLoaderPath(const std::string& path) {
  std::string normal = "\\";
  for (const char character : path + "\\") {
    const char separator = character == '/' ? '\\' : character;
    if (separator != '\\' || normal.back() != '\\') {
      normal += separator;
    }
  }
  return normal;
}

}  // namespace sim
