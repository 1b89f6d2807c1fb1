// Walks the tokens as the driver's parser does, keeps what it stores and notes what an author should know.
#include "sim/policy/policy_reading.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>

#include "flexboot/policy_parser.h"
#include "flexboot/policy_values.h"
#include "flexboot/xml_cursor.h"
#include "sim/policy/policy_tokens.h"
#include "sim/policy/quiet_driver.h"
#include "sim/policy/target_findings.h"
#include "sim/policy/text_position.h"
#include "sim/policy/value_findings.h"
#include "sim/policy/well_formed.h"

namespace sim {
namespace {

using bds::TargetType;

constexpr std::size_t kGuidLength = 36;

bool Is(const PolicyToken& token, const char* name) { return bds::XmlStriCmp(token.name.c_str(), name) == 0; }

class Reader {
 public:
  explicit Reader(std::string_view text) : text_(text), positions_(text), tokens_(TokenizePolicy(text)) {}

  PolicyReading Read() {
    const QuietDriver quiet;
    if (text_.size() > kPolicyTextLimit) {
      Say(FindingKind::Warning, kPolicyTextLimit,
          fmt::format("the driver reads {} bytes and no more; this policy has {}", kPolicyTextLimit, text_.size()));
    }
    if (auto error = FindXmlError(text_)) {
      reading_.findings.push_back(*error);
    }
    if (ReadHeader() && ReadTargets()) {
      JudgeWhole();
    }
    JudgeExtents();
    std::ranges::stable_sort(reading_.findings, {}, [](const PolicyFinding& f) { return std::pair(f.line, f.column); });
    return std::move(reading_);
  }

 private:
  void Say(FindingKind kind, std::size_t offset, std::string text) {
    reading_.findings.push_back({kind, positions_.LineOf(offset), positions_.ColumnOf(offset), std::move(text)});
  }
  void Say(FindingKind kind, const PolicyToken& token, std::string text) { Say(kind, token.offset, std::move(text)); }
  bool Refuse(std::size_t offset, std::string text) {
    Say(FindingKind::Refusal, offset, "the driver refuses the policy: " + std::move(text));
    reading_.refused = true;
    return false;
  }
  bool RefuseEnd(const char* expected) {
    return Refuse(std::min(text_.size(), kPolicyTextLimit), fmt::format("the text ends before {}>", expected));
  }

  const PolicyToken* Next() { return next_ < tokens_.tokens.size() ? &tokens_.tokens[next_++] : nullptr; }

  // A tag that looks like one of the format's but is not seen as it: for a blank that is missing, or one too many
  // kinds.
  bool ExplainSpelling(const PolicyToken& token) {
    const std::size_t end = token.name.find_first_of("/\t\r\n", 1);
    if (end == std::string::npos || end <= 1) {
      return false;
    }
    const std::string meant = token.name.substr(0, end);
    const bool known = bds::GetTargetElementId(meant.c_str()) != bds::TargetElement::Unknown ||
                       std::ranges::any_of(bds::kHeaderElements, [&](const bds::HeaderElementRow& row) {
                         return bds::XmlStriCmp(meant.c_str(), row.Token) == 0;
                       });
    if (!known) {
      return false;
    }
    const bool slash = token.name[end] == '/';
    Say(FindingKind::Warning, token,
        slash ? fmt::format("{}/> is not seen: put a blank before the slash", meant)
              : fmt::format("{} is not seen: a blank must follow the name, no tabulator or line end", meant));
    return true;
  }

  static bool IsComment(const PolicyToken& token) { return token.name.starts_with("<!--"); }

  std::string_view RestOfTag(const PolicyToken& token) const {
    const std::size_t end = std::min(text_.find('>', token.offset), text_.size());
    return text_.substr(token.offset, end - token.offset);
  }

  // What keeps a value from being read at all.
  void ObjectToMissingValue(const PolicyToken& token) {
    const std::string_view tag = RestOfTag(token);
    if (tag.find('"') == std::string_view::npos) {
      Say(FindingKind::Warning, token, fmt::format("{}> has no value between double quotes", token.name));
    } else if (token.value == bds::kXmlNoValue) {
      Say(FindingKind::Warning, token, fmt::format("{}: a value of 80 characters or more is read as none", token.name));
    }
  }

  void ObjectToFurtherAttributes(const PolicyToken& token) {
    if (std::ranges::count(RestOfTag(token), '"') > 2) {
      Say(FindingKind::Warning, token, fmt::format("{}: only the first value of an element is read", token.name));
    }
  }

  bool ReadHeader() {
    const PolicyToken* token = Next();
    if (tokens_.first == EFI_UNSUPPORTED) {
      return Refuse(0, "it does not begin with an XML declaration, <?xml ...");
    }
    if (token == nullptr) {
      return RefuseEnd(bds::kHeaderGroup);
    }
    if (!Is(*token, bds::kHeaderGroup)) {
      const bool comment = text_.substr(0, token->offset).find("<!--") != std::string_view::npos;
      return Refuse(token->offset,
                    fmt::format("the root's first element is {}>, expected {}>{}", token->name, bds::kHeaderGroup,
                                comment ? " (a comment in front of the root is taken for the root)" : ""));
    }
    for (token = Next(); token != nullptr; token = Next()) {
      if (Is(*token, bds::kHeaderGroupEnd)) {
        return true;
      }
      TakeHeaderElement(*token);
    }
    return RefuseEnd(bds::kHeaderGroupEnd);
  }

  void TakeHeaderElement(const PolicyToken& token) {
    for (std::size_t index = 0; index < std::size(bds::kHeaderElements); ++index) {
      const bds::HeaderElementRow& row = bds::kHeaderElements[index];
      if (!Is(token, row.Token)) {
        continue;
      }
      if (headerTaken_[index]) {
        Say(FindingKind::Warning, token, fmt::format("{}> was given before; the first one counts", token.name));
        return;
      }
      headerTaken_[index] = true;
      StoreHeaderElement(row, token);
      return;
    }
    if (!IsComment(token) && !ExplainSpelling(token)) {
      Say(FindingKind::Warning, token, fmt::format("{}> is no element of the header", token.name));
    }
  }

  void StoreHeaderElement(const bds::HeaderElementRow& row, const PolicyToken& token) {
    if (IsNoValue(token)) {
      ObjectToMissingValue(token);
    } else {
      ObjectToFurtherAttributes(token);
    }
    if (std::string objection = ObjectToHeaderValue(row, token.value); !objection.empty()) {
      Say(FindingKind::Warning, token, fmt::format("{}: {}", token.name, objection));
    }
    auto* field = reinterpret_cast<char*>(&reading_.header) + row.Offset;
    if (row.How == bds::Conversion::Hexadecimal) {
      const char* end = nullptr;
      reading_.header.NumBootTargets = static_cast<UINT8>(bds::XmlStrToInt(token.value.c_str(), &end, 16));
      countToken_ = &token;
    } else {
      bds::StoreText(field, row.Size, token.value.c_str());
    }
    if (std::string_view(row.Token) == "<BootType" && token.value != "legacy" && token.value != "uefi") {
      Say(FindingKind::Warning, token,
          fmt::format("BootType \"{}\" is neither legacy nor uefi (lower case): a managed server has nothing to boot "
                      "under it, a standalone one keeps its own mode",
                      token.value));
    }
  }

  bool ReadTargets() {
    reading_.targets.resize(reading_.header.NumBootTargets);
    judge_.emplace(reading_.header.BootType);
    const PolicyToken* token = Next();
    while (token != nullptr && !Is(*token, bds::kTargetsGroup)) {
      ExplainSpelling(*token);
      token = Next();
    }
    if (token == nullptr) {
      return RefuseEnd(bds::kTargetsGroup);
    }
    for (token = Next(); token != nullptr; token = Next()) {
      if (Is(*token, bds::kTargetsGroupEnd)) {
        return true;
      }
      if (!ReadTarget(*token)) {
        return false;
      }
    }
    return RefuseEnd(bds::kTargetsGroupEnd);
  }

  bool ReadTarget(const PolicyToken& open) {
    if (!Is(open, bds::kTargetGroup)) {
      return Refuse(open.offset,
                    fmt::format("{}> stands between targets, where only {}> may{}", open.name, bds::kTargetGroup,
                                IsComment(open) ? " (comments are elements to the driver)" : ""));
    }
    const TargetType type = bds::FindTargetType(open.value.c_str());
    FLEXBOOT_TARGET entry{};
    entry.Type = static_cast<UINT8>(type);
    entry.Valid = bds::TypeRow(type).Usable ? 1 : 0;
    ObjectToType(open, type);
    given_.clear();
    if (!TakeLoaders()) {
      return false;
    }
    for (const PolicyToken* token = Next(); token != nullptr; token = Next()) {
      if (Is(*token, bds::kTargetGroupEnd)) {
        KeepTarget(open, entry);
        return true;
      }
      TakeTargetElement(type, *token, entry);
    }
    return RefuseEnd(bds::kTargetGroupEnd);
  }

  // Before its own elements. Targets beyond the announced ones are not asked for loaders.
  bool TakeLoaders() {
    LoaderReading loaders = ReadLoaders(std::span(tokens_.tokens).subspan(next_));
    const bool missing = loaders.missing != nullptr && count_ < reading_.targets.size();
    reading_.loaders.push_back(std::move(loaders.texts));
    return !missing || RefuseEnd(loaders.missing);
  }

  void ObjectToType(const PolicyToken& open, TargetType type) {
    if (type == TargetType::Unknown) {
      Say(FindingKind::Warning, open,
          fmt::format("\"{}\" is no target type: this target and all that follow are not used", open.value));
    } else if (type == TargetType::NonPolicyTarget) {
      Say(FindingKind::Warning, open, "a NonPolicyTarget ends the list: this target and all that follow are not used");
    } else if (listEnded_) {
      Say(FindingKind::Warning, open, "not used: a target before it ended the list");
    }
    listEnded_ = listEnded_ || !bds::TypeRow(type).Usable;
  }

  void KeepTarget(const PolicyToken& open, const FLEXBOOT_TARGET& entry) {
    if (count_ < reading_.targets.size()) {
      reading_.targets[count_] = entry;
      JudgeTarget(open, entry);
    } else {
      Say(FindingKind::Warning, open,
          fmt::format("not used: NumBootTargets announces {} targets", reading_.targets.size()));
    }
    ++count_;
  }

  void JudgeTarget(const PolicyToken& open, const FLEXBOOT_TARGET& entry) {
    if (listEnded_) {
      return;
    }
    for (const TargetFinding& finding : judge_->Judge(entry, reading_.loaders.back())) {
      const auto place = given_.find(finding.element);
      Say(finding.kind, place == given_.end() ? open : *place->second, finding.text);
    }
  }

  void TakeTargetElement(TargetType type, const PolicyToken& token, FLEXBOOT_TARGET& entry) {
    if (IsComment(token)) {
      return;
    }
    if (IsLoaderToken(token)) {
      ObjectToLoaderText(token);
      return;
    }
    const bds::LayoutField* field = FindLayoutField(type, bds::GetTargetElementId(token.name.c_str()));
    if (field == nullptr) {
      if (!ExplainSpelling(token)) {
        ObjectToElement(type, token);
      }
      return;
    }
    if (!given_.insert_or_assign(field->Element, &token).second) {
      Say(FindingKind::Warning, token,
          fmt::format("{}> was given before in this target; the last one counts", token.name));
    }
    if (IsNoValue(token)) {
      ObjectToMissingValue(token);
    } else {
      ObjectToFurtherAttributes(token);
    }
    if (std::string objection = ObjectToValue(*field, token.value); !objection.empty()) {
      Say(FindingKind::Warning, token, fmt::format("{}: {}", token.name, objection));
    }
    bds::StoreValue(*field, token.value.c_str(), bds::TypeRow(type).Extractor, entry);
  }

  void ObjectToElement(TargetType type, const PolicyToken& token) {
    if (!bds::TypeRow(type).Usable || token.name.starts_with("</")) {
      return;  // of a type that takes none, or the end of a group
    }
    const bool known = bds::GetTargetElementId(token.name.c_str()) != bds::TargetElement::Unknown;
    Say(FindingKind::Warning, token,
        known ? fmt::format("a {} target does not look at {}>", bds::TypeRow(type).Word, token.name)
              : fmt::format("{}> is no element of a target", token.name));
  }

  void ObjectToLoaderText(const PolicyToken& token) {
    if (!IsExactLoaderToken(token)) {
      Say(FindingKind::Warning, token,
          fmt::format("{}> is not seen: the elements of a loader must be written in their own letter case",
                      token.name));
    } else if (token.name.find("UEFIBootParam") != std::string::npos) {
      return;  // a group
    } else if (IsNoValue(token)) {
      ObjectToMissingValue(token);
    } else if (token.value.empty()) {
      Say(FindingKind::Note, token, fmt::format("{}: empty, counts as not given", token.name));
    } else if (token.name == bds::kPartitionGuidToken && token.value.size() > kGuidLength) {
      Say(FindingKind::Warning, token, fmt::format("\"{}\" is longer than a GUID and is not looked at", token.value));
    } else if (token.name == bds::kLoaderPathToken) {
      ObjectToLoaderPath(token);
    }
  }

  void ObjectToLoaderPath(const PolicyToken& token) {
    const std::string normal = NormalLoaderPath(token.value);
    if (normal != token.value && normal != token.value + "\\") {
      Say(FindingKind::Note, token, fmt::format("{}: read as {}", token.name, normal));
    }
  }

  // The name of the tag whose '<' is there.
  std::string NameAt(std::size_t offset) const {
    return std::string(text_.substr(offset, text_.find_first_of(" >/\t\r\n", offset + 1) - offset));
  }

  // What a tag took beyond its own end: without quotes of its own, and comments, it takes the next value.
  void JudgeExtents() {
    std::size_t commentEnd = 0;
    for (const PolicyToken& token : std::span(tokens_.tokens).first(next_)) {
      if (token.offset < commentEnd) {
        Say(FindingKind::Warning, token, fmt::format("{}> stands in a comment, yet the driver reads it", token.name));
        continue;
      }
      if (IsComment(token)) {
        commentEnd = std::min(text_.find("-->", token.offset), text_.size());
      }
      const std::size_t taken = text_.substr(0, token.end).find('<', std::max(token.offset + 1, commentEnd));
      if (taken != std::string_view::npos) {
        Say(FindingKind::Warning, token,
            fmt::format("{} has no value between double quotes: the driver takes that of {}>, which it does not see",
                        IsComment(token) ? "a comment, which is an element to the driver," : token.name,
                        NameAt(taken)));
      } else if (IsComment(token)) {
        Say(FindingKind::Note, token, "the driver knows no comments: it reads this one as an element of its own");
      }
    }
  }

  void JudgeWhole() {
    if (countToken_ == nullptr) {
      Say(FindingKind::Warning, 0, "the header has no NumBootTargets: no target is used");
      return;
    }
    if (count_ >= reading_.targets.size()) {
      return;  // targets beyond the number were told one by one
    }
    Say(FindingKind::Warning, *countToken_,
        fmt::format("NumBootTargets \"{}\" is hexadecimal and announces {} targets; there {} {}", countToken_->value,
                    reading_.targets.size(), count_ == 1 ? "is" : "are", count_));
  }

  std::string_view text_;
  TextPositions positions_;
  PolicyTokens tokens_;
  std::size_t next_ = 0;
  PolicyReading reading_;
  bool headerTaken_[std::size(bds::kHeaderElements)] = {};
  const PolicyToken* countToken_ = nullptr;
  std::size_t count_ = 0;
  bool listEnded_ = false;
  std::map<bds::TargetElement, const PolicyToken*> given_;  // in the target at hand
  std::optional<TargetJudge> judge_;
};

}  // namespace

PolicyReading ReadPolicy(std::string_view text) { return Reader(text).Read(); }

std::string ReadPolicyFile(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  std::string text((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
  if (!stream) {
    throw std::runtime_error(fmt::format("{}: cannot be read", file.string()));
  }
  return text;
}

}  // namespace sim
