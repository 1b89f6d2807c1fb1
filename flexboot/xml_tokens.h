// The two buffers that a reader of tokens needs.
#pragma once

#include "flexboot/xml_cursor.h"
#include "support/pool.h"

namespace bds {

struct XML_TOKENS {
  PoolPtr<char> Token;  // kXmlTextSize each
  PoolPtr<char> Value;

  const char* token() const { return Token.get(); }
  const char* value() const { return Value.get(); }
};

// Allocates both, zeroed. The one that failed is logged in the caller's name.
[[nodiscard]] bool AllocateTokens(XML_TOKENS& tokens, const char* caller);
[[nodiscard]] bool AllocateValueText(PoolPtr<char>& value, const char* caller);

}  // namespace bds
