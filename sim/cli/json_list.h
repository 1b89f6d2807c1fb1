// A list of records as a JSON array.
#pragma once

#include <nlohmann/json.hpp>
#include <vector>

namespace sim {

// convert: of one element to JSON.
template <typename Element, typename Convert>
nlohmann::ordered_json JsonList(const std::vector<Element>& elements, Convert convert) {
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const Element& element : elements) {
    list.push_back(convert(element));
  }
  return list;
}

}  // namespace sim
