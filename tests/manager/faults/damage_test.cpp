#include "tests/manager/faults/peer.h"
#include "tests/support/process.h"

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <iostream>
#include <random>
#include <set>

namespace faults {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kPage = 4096;

/// A file's bytes, of which most may be zeros that take no room.
class Image {
public:
  Image() = default;
  explicit Image(const std::string& path) : m_size(fs::file_size(path)) {
    std::ifstream in(path, std::ios::binary);
    std::string page(kPage, '\0');
    for (std::size_t at = 0; at < m_size; at += kPage) {
      page.resize(std::min(kPage, m_size - at));
      in.read(page.data(), static_cast<std::streamsize>(page.size()));
      if (page.find_first_not_of('\0') != std::string::npos) m_pages[at] = page;
    }
  }
  void write(const std::string& path) const {
    { std::ofstream(path, std::ios::binary | std::ios::trunc); }
    fs::resize_file(path, m_size);
    std::fstream out(path, std::ios::binary | std::ios::in | std::ios::out);
    for (const auto& [at, page] : m_pages) {
      if (at >= m_size) continue;
      out.seekp(static_cast<std::streamoff>(at));
      out.write(page.data(), static_cast<std::streamsize>(std::min(page.size(), m_size - at)));
    }
  }

  /// One of what disks, controllers and people do to a file. Says which.
  std::string damage(std::mt19937& random) {
    const auto below = [&random](std::size_t limit) { return random() % limit; };
    auto chosen = std::next(m_pages.begin(), static_cast<long>(below(m_pages.size())));
    std::string& page = chosen->second;
    const std::string where = " in the page at " + std::to_string(chosen->first);
    switch (below(5)) {
    case 0: {
      const std::size_t bit = below(page.size() * 8);
      page[bit / 8] = static_cast<char>(page[bit / 8] ^ (1 << bit % 8));
      return "bit " + std::to_string(bit) + where;
    }
    case 1:
      for (char& byte : page) byte = static_cast<char>(random());
      return "garbage" + where;
    case 2:
      page.swap(std::next(m_pages.begin(), static_cast<long>(below(m_pages.size())))->second);
      return "another page" + where;
    case 3: {
      const std::size_t from = below(page.size());
      std::fill(page.begin() + static_cast<long>(from), page.end(), '\0');
      return "zeros from " + std::to_string(from) + where;
    }
    default: m_size = chosen->first + below(page.size()); return "the end cut off" + where;
    }
  }

private:
  std::size_t m_size = 0;
  std::map<std::size_t, std::string> m_pages;
};

struct Kind {
  const char* file;
  bool durable; ///< else it is thrown away at a boot, and damage in it may lose count of messages
};

class Damage : public ::testing::TestWithParam<Kind> {
protected:
  Damage() {
    Peer founder(m_home.path().string()), reader(m_home.path().string());
    for (const char* words :
         {"connect", "create Q", "sputn Q a 200 @300", "commit", "sputn Q big 5 @20000", "commit"})
      founder.words(words);
    for (int i = 0; i < 200; ++i) m_there.push_back("a" + std::to_string(i) + "@300");
    for (int i = 0; i < 5; ++i) m_there.push_back("big" + std::to_string(i) + "@20000");
    reader.words("connect");
    for (int i = 0; i < 20; ++i) reader.words("get Q"); // into another log file
    reader.words("disconnect");
    founder.words("disconnect");
    m_put = {m_there.begin(), m_there.end()};
    m_there.erase(m_there.begin(), m_there.begin() + 20);
    for (const auto& entry : fs::directory_iterator(m_home / "DEFAULT"))
      m_sound[entry.path().filename()] = Image(entry.path());
  }
  std::string pathOf(const std::string& name) const { return m_home / ("DEFAULT/" + name); }
  void restore() const {
    for (const auto& entry : fs::directory_iterator(m_home / "DEFAULT")) fs::remove(entry);
    for (const auto& [name, image] : m_sound) image.write(pathOf(name));
    fs::remove(m_home / "errors");
  }

  struct Seen {
    bool died = false;
    bool told = false; ///< with a reason, or a line on standard error
    std::vector<std::string> names;
    std::chrono::milliseconds slowest{0};
  };
  /// All that a program does with a queue.
  Seen use() const {
    Seen seen;
    Peer peer(m_home.path().string(), {}, m_home / "errors");
    const auto ask = [&](const std::string& words) {
      std::optional<std::string> answer;
      const auto took = timed([&] { answer = peer.ask(words); });
      seen.slowest = std::max(seen.slowest, took);
      seen.died = seen.died || !answer;
      seen.told = seen.told || (answer && answer->starts_with("2 ") && *answer != "2 2033");
      return answer.value_or("");
    };
    if (ask("connect").starts_with("0 0")) {
      ask("browse Q");
      ask("depth Q");
      for (int i = 0; i < 600 && !seen.died; ++i) {
        const auto words = split(ask("get Q"));
        if (words.size() > 2)
          seen.names.push_back(words[2]);
        else if (words.size() != 2 || words[1] != "2101")
          break;
      }
      ask("put Q new");
      ask("get Q");
      ask("disconnect");
    }
    seen.told =
        seen.told || (fs::exists(m_home / "errors") && fs::file_size(m_home / "errors") > 0);
    return seen;
  }

  support::TempFolder m_home;
  std::map<std::string, Image> m_sound;
  std::vector<std::string> m_there;
  std::set<std::string> m_put;
};

/// Nobody dies of it or hangs, no changed text is delivered, and nothing is missing, twice or in
/// another order without a word.
TEST_P(Damage, IsToldAndHarmsNobody) {
  const char* wanted = std::getenv("FAULTS_DAMAGES");
  const int count = wanted ? std::atoi(wanted) : 6;
  int whole = 0, told = 0, silent = 0;
  std::chrono::milliseconds slowest{0};
  for (int number = 0; number < count; ++number) {
    std::mt19937 random(static_cast<unsigned>(number));
    restore();
    Image image = m_sound.at(GetParam().file);
    const bool boot = random() % 2 != 0;
    const std::string what = "case " + std::to_string(number) + (boot ? ", boot: " : ": ") +
                             image.damage(random) + " of " + GetParam().file;
    image.write(pathOf(GetParam().file));
    if (boot) fs::remove(pathOf("runtime"));
    Seen seen;
    ASSERT_NO_THROW(seen = use()) << what;
    slowest = std::max(slowest, seen.slowest);
    EXPECT_FALSE(seen.died) << what;
    for (const std::string& name : seen.names)
      EXPECT_TRUE(m_put.contains(name)) << name << ", " << what;
    if (seen.names == m_there)
      ++whole;
    else if (seen.told)
      ++told;
    else
      ++silent;
    const bool mayBeSilent = !GetParam().durable && !boot;
    EXPECT_TRUE(seen.names == m_there || seen.told || mayBeSilent) << what;
  }
  std::cout << count << " damages of " << GetParam().file << ": " << whole << " harmless, " << told
            << " told, " << silent << " silent; slowest answer " << slowest.count() << " ms\n";
}

INSTANTIATE_TEST_SUITE_P(Files, Damage,
                         ::testing::Values(Kind{"log-0", true}, Kind{"log-1", true},
                                           Kind{"queue-1", true}, Kind{"manager", true},
                                           Kind{"index-1-0", false}, Kind{"runtime", false}),
                         [](const auto& kind) {
                           std::string name = kind.param.file;
                           std::replace(name.begin(), name.end(), '-', '_');
                           return name;
                         });

} // namespace
} // namespace faults
