#include "flexboot/xml_tokens.h"

#include "support/debug_print.h"

namespace bds {

bool AllocateValueText(PoolPtr<char>& value, const char* caller) {
  value.reset(static_cast<char*>(AllocateZeroPool(kXmlTextSize)));
  if (!value) {
    DebugPrint("%a:valuestr alloc failed\n", caller);
  }
  return static_cast<bool>(value);
}

bool AllocateTokens(XML_TOKENS& tokens, const char* caller) {
  tokens.Token.reset(static_cast<char*>(AllocateZeroPool(kXmlTextSize)));
  if (!tokens.Token) {
    DebugPrint("%a:tokenstr alloc failed\n", caller);
    return false;
  }
  return AllocateValueText(tokens.Value, caller);
}

}  // namespace bds
