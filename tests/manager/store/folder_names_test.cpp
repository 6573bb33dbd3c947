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

TEST(Names, ArePaddedWithBlanksOrEndedByAZero) {
  EXPECT_EQ(unpadded("NAME    ", 8), "NAME");
  EXPECT_EQ(unpadded("NAME\0xxx", 8), "NAME");
  EXPECT_EQ(unpadded("12345678", 8), "12345678");
  EXPECT_EQ(unpadded("        ", 8), "");
  EXPECT_EQ(unpadded(" A", 2), " A") << "a leading blank is a character";
  EXPECT_FALSE(isName(" A"));
  EXPECT_FALSE(isName(""));
  EXPECT_TRUE(isName(std::string(48, 'x')));
  EXPECT_FALSE(isName(std::string(49, 'x')));
  for (const char wrong : std::string("@[`{-:$,\x7f\x80\xff\n")) EXPECT_FALSE(isName({&wrong, 1}));
}

} // namespace

} // namespace bxm
