// The policy's tokenizer beside two XML parsers on the same text, each reading every tag and value of a policy that
// fills the buffer: 4,095 bytes.
#include <benchmark/benchmark.h>
#include <expat.h>
#include <fmt/format.h>

#include <pugixml.hpp>
#include <string>

#include "flexboot/xml_cursor.h"

namespace {

std::string FullPolicy() {
  std::string text = "<?xml version='1.0'?>\n<FlexBoot>\n";
  for (int i = 0;; ++i) {
    const std::string target = fmt::format(
        "  <FlexBootTarget value=\"LAN\">\n    <PciVid value=\"1137\" />\n    <MACAddress "
        "value=\"00:25:b5:00:00:{:02x}\" />\n"
        "    <RetrySameCategoryDevices value=\"no\" />\n  </FlexBootTarget>\n",
        i);
    if (text.size() + target.size() > 4095 - 13) {
      return text + "</FlexBoot>\n";
    }
    text += target;
  }
}

void Tokenizer(benchmark::State& state) {
  const std::string text = FullPolicy();
  std::int64_t tokens = 0;
  for ([[maybe_unused]] auto _ : state) {
    bds::XML_CURSOR cursor = bds::StartXml(text.data(), text.size());
    char name[bds::kXmlTextSize];
    char value[bds::kXmlTextSize];
    std::uint64_t status = bds::GetFirstToken(cursor, name, value);
    for (tokens = 0; status == 0 && bds::XmlStriCmp(name, "</FlexBoot") != 0; ++tokens) {
      benchmark::DoNotOptimize(value);
      status = cursor.Offset + 13 < text.size() ? bds::GetNextToken(cursor, name, value) : ~std::uint64_t{0};
    }
  }
  state.counters["tags"] = static_cast<double>(tokens);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(Tokenizer);

void Expat(benchmark::State& state) {
  const std::string text = FullPolicy();
  std::int64_t tags = 0;
  for ([[maybe_unused]] auto _ : state) {
    tags = 0;
    XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetUserData(parser, &tags);
    XML_SetElementHandler(
        parser,
        [](void* data, const XML_Char*, const XML_Char** attributes) {
          ++*static_cast<std::int64_t*>(data);
          benchmark::DoNotOptimize(attributes[0] != nullptr ? attributes[1] : nullptr);
        },
        [](void*, const XML_Char*) {});
    if (XML_Parse(parser, text.data(), static_cast<int>(text.size()), 1) != XML_STATUS_OK) {
      state.SkipWithError("the text is not well-formed");
    }
    XML_ParserFree(parser);
  }
  state.counters["tags"] = static_cast<double>(tags);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(Expat);

std::int64_t Visit(const pugi::xml_node& node) {
  std::int64_t tags = 0;
  for (const pugi::xml_node& child : node) {
    benchmark::DoNotOptimize(child.first_attribute().value());
    tags += 1 + Visit(child);
  }
  return tags;
}

void Pugixml(benchmark::State& state) {
  const std::string text = FullPolicy();
  std::int64_t tags = 0;
  for ([[maybe_unused]] auto _ : state) {
    pugi::xml_document document;
    if (!document.load_buffer(text.data(), text.size())) {
      state.SkipWithError("the text is not well-formed");
    }
    tags = Visit(document);
  }
  state.counters["tags"] = static_cast<double>(tags);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(Pugixml);

}  // namespace
