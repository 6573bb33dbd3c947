#include "ferry/logging/uriuc.h"
#include "fuzz_check.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto text = UnicodeString::fromUTF8(
      icu::StringPiece(reinterpret_cast<const char*>(data), static_cast<int32_t>(size)));
  const URIUC uri(text);
  FUZZ_CHECK(uri.Text_rob() == text);
  FUZZ_CHECK(uri.Scheme_rob().indexOf(u':') < 0 && uri.Scheme_rob().indexOf(u'/') < 0);
  FUZZ_CHECK(uri.Scheme_rob() == u"file" || uri.Path_rob().startsWith(u"/"));
  const URIUC copy(uri);
  for (const auto& [name, value] : copy.Query_rob())
    FUZZ_CHECK(uri.FindQuery_pob(name) && *uri.FindQuery_pob(name) == value);
  URIUC::isValidHTTPURI(text);
  return 0;
}
