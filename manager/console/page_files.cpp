#include "manager/console/page_files.h"

#include "manager/base/bytes.h"

#include <algorithm>
#include <fmt/format.h>

namespace bxm::console {

const PageFile* findPageFile(std::string_view name) {
  const auto files = pageFiles();
  const auto found = std::find_if(files.begin(), files.end(),
                                  [name](const PageFile& file) { return file.name == name; });
  return found == files.end() ? nullptr : &*found;
}

std::string typeOf(const PageFile& file) {
  if (file.name.ends_with(".html")) return "text/html; charset=utf-8";
  if (file.name.ends_with(".css")) return "text/css; charset=utf-8";
  if (file.name.ends_with(".js")) return "text/javascript; charset=utf-8";
  if (file.name.ends_with(".svg")) return "image/svg+xml";
  return "application/octet-stream";
}

std::string etagOf(const PageFile& file) {
  return fmt::format("\"{:x}-{:08x}\"", file.bytes.size(), crc32c(file.bytes));
}

} // namespace bxm::console
