#include "ferry/queue/session.h"

#include <gtest/gtest.h>

namespace {

std::string classified(long reason) {
  VRK_Severity severity = VRK_NO_SEVERITY;
  std::string category;
  const unsigned long code = CCMEBXSer::GetBXSExceptionCode(reason, severity, category);
  return category + " " + std::to_string(severity) + " " + std::to_string(code);
}

} // namespace

TEST(ReasonCodes, HaveTexts) {
  EXPECT_EQ(CCMEBXSer::GetErrorText(2002), u"Application already connected");
  EXPECT_EQ(CCMEBXSer::GetErrorText(2006), u"Characte attrbute is negative");
  EXPECT_EQ(CCMEBXSer::GetErrorText(2046), u"Option not valid for object");
  EXPECT_EQ(CCMEBXSer::GetErrorText(2056), u"No space avaliable for queue no disk");
  EXPECT_EQ(CCMEBXSer::GetErrorText(2162), u"Queue namager stopping");
  for (const long unknown : {-1L, 0L, 2001L, 2015L, 2104L, 2163L, 67538L})
    EXPECT_EQ(CCMEBXSer::GetErrorText(unknown), u"Unknown error") << unknown;
}

TEST(ReasonCodes, AreClassified) {
  EXPECT_EQ(classified(2033), "Informational 0 70");
  EXPECT_EQ(classified(2003), "BXS Transaction Error 4 50");
  EXPECT_EQ(classified(2009), "BXS Connection Failure 4 10");
  EXPECT_EQ(classified(2037), "BXS Receive Error 4 40");
  EXPECT_EQ(classified(2218), "BXS Buffer Size Error 4 25");
  EXPECT_EQ(classified(2063), "BXS Insufficient Permissions 4 20");
  EXPECT_EQ(classified(2268), "BXS Send Error 4 30");
  EXPECT_EQ(classified(2246), "BXS Cursor Error 0 60");
  for (const long other : {-1L, 0L, 2015L, 2269L, 2322L, 67569L}) // the last is 2033 in 16 bits
    EXPECT_EQ(classified(other), "BXS Critical Error 4 2") << other;
}
