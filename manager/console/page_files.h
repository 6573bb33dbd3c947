#pragma once

#include <span>
#include <string>
#include <string_view>

namespace bxm::console {

/// What the browser is given, built into the program from manager/console/page.
struct PageFile {
  std::string_view name, bytes;
};
std::span<const PageFile> pageFiles();

/// nullptr when there is none of that name.
const PageFile* findPageFile(std::string_view name);
std::string typeOf(const PageFile& file);
/// Changes with what is in it.
std::string etagOf(const PageFile& file);

} // namespace bxm::console
