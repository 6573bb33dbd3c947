#include "manager/base/names.h"
#include "manager/store/log/home.h"

#include <gtest/gtest.h>

namespace bxm {

namespace {

TEST(FolderNames, NothingLeavesTheHomeOrMeetsAnotherFile) {
  for (const std::string& name :
       {std::string("PLAIN"), std::string("a.b_c"), std::string("."), std::string(".."),
        std::string(".hidden"), std::string("../../etc"), std::string("/"), std::string("a/b"),
        std::string("%2F"), std::string("%"), std::string("a%"), std::string("default"),
        std::string("bxclient.ini"), std::string(48, '/')}) {
    const std::string folder = encodeFolderName(name);
    EXPECT_EQ(decodeFolderName(folder), name);
    EXPECT_EQ(folder.find('/'), std::string::npos) << name;
    EXPECT_NE(folder[0], '.') << name;
    EXPECT_NE(folder, "default");
    EXPECT_NE(folder, "bxclient.ini");
    EXPECT_LE(folder.size(), 255U);
  }
  EXPECT_NE(encodeFolderName("a/b"), encodeFolderName("a%2Fb"));
}

TEST(Names, AreOfAFewCharacters) {
  for (const char wrong : std::string("@[`{-:$,\x7f\x80\xff\n")) EXPECT_FALSE(isName({&wrong, 1}));
}

} // namespace

} // namespace bxm
