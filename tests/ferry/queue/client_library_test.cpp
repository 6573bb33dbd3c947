#include "bx/bx.h"
#include "ferry/queue/client_library.h"
#include "tests/support/process.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

using namespace support;

namespace {

/// Folders of client libraries under the names that a test chooses, and a process that loads them.
class ClientLibrary : public ::testing::Test {
protected:
  void provide(const std::string& name, const std::string& variant = "libbxm_r.so") {
    std::filesystem::copy_file(CLIENTS_DIR "/" + variant, m_folder / name);
  }
  std::string probe(std::vector<std::string> verbs) {
    verbs.insert(verbs.begin(), LOADER_PROBE);
    Process process(verbs);
    const Result result = process.environment("LD_LIBRARY_PATH", m_folder.path().string()).run();
    EXPECT_EQ(result.status, 0) << result.err;
    return result.out;
  }

  TempFolder m_folder;
};

const char* const WITHOUT_TRIM = "libwithout_trim.so";

} // namespace

TEST_F(ClientLibrary, IsTheFirstOfFourNamesThatIsThere) {
  for (const std::string name : {"libbxic.so", "libbxic_r.so", "libbxm.so", "libbxm_r.so"}) {
    provide(name);
    EXPECT_EQ(probe({"init", "show"}), name + "\n");
  }
}

TEST_F(ClientLibrary, SaysWhyNoneLoads) {
  const std::string out = probe({"init", "show"});
  EXPECT_TRUE(out.starts_with("Failed to load BXM module: libbxic.so: ")) << out;
  EXPECT_TRUE(out.ends_with(" [40 4]\nnone\n")) << out;
}

TEST_F(ClientLibrary, SaysWhyThoseThatAreThereDoNotLoad) {
  provide("libbxm.so", "libneedy.so");
  writeFile(m_folder / "libbxic_r.so", "not a library");
  const std::string out = probe({"init"});
  EXPECT_TRUE(out.starts_with("libbxm.so cannot be loaded: libwithout_trim.so: ")) << out;
  EXPECT_NE(out.find("\nlibbxic_r.so cannot be loaded: /"), std::string::npos) << out;
  provide("libbxic.so");
  EXPECT_EQ(probe({"init", "show"}), "libbxic.so\n") << "nothing among a reader's records";
}

TEST_F(ClientLibrary, KeepsTheReferenceOfALoadThatFailed) {
  const std::string link = "link:" CLIENTS_DIR "/libbxm_r.so:" + (m_folder / "libbxm.so");
  const std::string out = probe({"init", link, "init", "uninit", "show", "uninit", "show"});
  EXPECT_TRUE(out.ends_with(" [40 4]\nlibbxm.so\nnone\n")) << out;
}

// Ends at all: the thread that gives the reference back holds the loader's lock already.
TEST_F(ClientLibrary, LackingAnEntryPointIsUnloadedAgain) {
  provide("libbxm_r.so", WITHOUT_TRIM);
  const std::string failure = "Failed to find function: bxTrim [41 4]\n";
  EXPECT_EQ(probe({"init", "show", "init"}), failure + "none\n" + failure);
}

TEST_F(ClientLibrary, StaysUntilTheLastReferenceGoes) {
  provide("libbxm_r.so");
  EXPECT_EQ(probe({"init", "init", "uninit", "show", "uninit", "show", "uninit", "init", "show"}),
            "libbxm_r.so\nnone\nlibbxm_r.so\n");
}

// For the thread sanitizer.
TEST(EntryPoints, ServeOneThreadWhileAnotherTakesAReference) {
  InitBXM();
  std::thread other([] { InitBXM(), UninitBXM(); });
  BXLONG code = BXCC_FAILED;
  BXCMIT(BXHC_UNUSABLE, &code, &code);
  EXPECT_EQ(code, BXCC_OK);
  other.join();
  UninitBXM();
}
