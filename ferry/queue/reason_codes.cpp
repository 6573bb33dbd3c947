#include "ferry/logging/logger.h"
#include "ferry/queue/session.h"
#include "ferry/text/ucss.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>

namespace {

struct Text {
  uint16_t nReason;
  const char16_t* pText;
};

// In ascending order. The spelling is what users have always seen and search for.
constexpr auto TEXTS = std::to_array<Text>({
    {2002, u"Application already connected"},
    {2003, u"Work backed out"},
    {2004, u"Buffer error"},
    {2005, u"Buffer length error"},
    {2006, u"Characte attrbute is negative"},
    {2007, u"Characte attrbute is not valid"},
    {2008, u"Characte attrbute is too short"},
    {2009, u"Connection to queue manager has been lost"},
    {2010, u"Data length error"},
    {2011, u"Dynamic queue name error"},
    {2012, u"Call is not valid for current environment"},
    {2013, u"Invalid expiry value"},
    {2014, u"Feedback error"},
    {2016, u"Calls are currently inhibited for the queue"},
    {2017, u"Maximum number of open handles for current task has been reached"},
    {2018, u"Connection handle is not valid"},
    {2019, u"Object handle invalid"},
    {2021, u"IntAttrCount parameter invalid"},
    {2022, u"IntAttrCount too small"},
    {2023, u"IntAttrs not valid"},
    {2024, u"Number of uncommitted message in current work exceeded the queue manager limit"},
    {2025, u"Maximum number of connections exceeded"},
    {2026, u"BXMD structure is not valid"},
    {2027, u"ReplyToQ field in the message descriptor BXMD is blank"},
    {2029, u"Message type error"},
    {2030, u"Message too big for queue"},
    {2031, u"Message too big for queue manager"},
    {2033, u"No message available"},
    {2034, u"No message under cursor"},
    {2035, u"User not authorized"},
    {2036, u"Queue has not been open for browse"},
    {2037, u"Queue has not been open for input"},
    {2038, u"Object not open for inquire"},
    {2039, u"Queue not open for output"},
    {2040, u"Queue not open for set"},
    {2041, u"Object has changed"},
    {2042, u"Object in use"},
    {2043, u"ObjectType field in the object descriptor BXOD specifies a value that is not valid"},
    {2044, u"Object descriptor BXOD is not valid"},
    {2045, u"Option not valid for object"},
    {2046, u"Option not valid for object"},
    {2047, u"Invalid persistence value"},
    {2048, u"Queue doesn't support presistent messages"},
    {2049, u"Priority value exceeded maximum priority value supported by queue manager"},
    {2050, u"Invalid priority value"},
    {2051, u"Put inhibited"},
    {2052, u"Queue deleted"},
    {2053, u"Queue full"},
    {2055, u"Queue not empty"},
    {2056, u"No space avaliable for queue no disk"},
    {2057, u"Queue Type error"},
    {2058, u"Invalid queue manager name"},
    {2059, u"Queue manager not available"},
    {2061, u"Report option error"},
    {2062, u"Second mark not allowed"},
    {2063, u"Security error"},
    {2065, u"Selector count error"},
    {2066, u"Selector limit exceeded"},
    {2067, u"Selector error"},
    {2068, u"Selector not for type"},
    {2069, u"Signal outstanding"},
    {2070, u"Signal request accepted"},
    {2071, u"Insufficient main storage avaliable"},
    {2072, u"Syncpoint not available"},
    {2075, u"Trigger control error"},
    {2076, u"Trigger depth error"},
    {2077, u"Trigger message priority error"},
    {2078, u"Trigger type error"},
    {2079, u"Truncated message accepted"},
    {2080, u"Message too large to fit the supplied buffer"},
    {2082, u"Unknown alias base queue"},
    {2085, u"Unknown object name"},
    {2086, u"Unknown object queue manager"},
    {2087, u"Unknown remote queue manager"},
    {2090, u"Invalid wait interval value"},
    {2091, u"Transmit queue type error"},
    {2092, u"Transmit queue usage error"},
    {2093, u"Queue not open for pass all"},
    {2094, u"Queue not open for pass identity context"},
    {2095, u"Queue not open for set all context"},
    {2096, u"Queue not open for set identity context"},
    {2097, u"Invalid context handle"},
    {2098, u"Context not available"},
    {2099, u"Signal1 field is not valid"},
    {2100, u"Dynamic queue already exists"},
    {2101, u"Object damaged"},
    {2102, u"Insufficient resources"},
    {2103, u"Unknown report option"},
    {2162, u"Queue namager stopping"},
});

constexpr bool IsAscending() {
  return std::ranges::is_sorted(TEXTS, std::ranges::less{}, &Text::nReason);
}
static_assert(IsAscending());

struct Category {
  const char* pText;
  VRK_Severity nSeverity;
  uint16_t nCode;
  std::span<const uint16_t> aReasons;
};

constexpr uint16_t INFORMATIONAL[] = {2002, 2033, 2034, 2049, 2079, 2222,
                                      2223, 2224, 2225, 2226, 2227};
constexpr uint16_t TRANSACTION[] = {2003, 2024, 2121, 2122, 2123, 2124, 2128, 2134};
constexpr uint16_t CONNECTION[] = {2009, 2018, 2025, 2042, 2059, 2100, 2137};
constexpr uint16_t RECEIVE[] = {2016, 2036, 2037};
constexpr uint16_t BUFFER_SIZE[] = {2030, 2031, 2080, 2218};
constexpr uint16_t PERMISSIONS[] = {2035, 2063};
constexpr uint16_t SEND[] = {2039, 2047, 2048, 2051, 2053, 2082, 2085, 2086, 2087, 2268};
constexpr uint16_t CURSOR[] = {2246};

constexpr Category CATEGORIES[] = {
    {"Informational", VRK_INFORMATION, 70, INFORMATIONAL},
    {"BXS Transaction Error", VRK_CRITICAL_ERROR, 50, TRANSACTION},
    {"BXS Connection Failure", VRK_CRITICAL_ERROR, 10, CONNECTION},
    {"BXS Receive Error", VRK_CRITICAL_ERROR, 40, RECEIVE},
    {"BXS Buffer Size Error", VRK_CRITICAL_ERROR, 25, BUFFER_SIZE},
    {"BXS Insufficient Permissions", VRK_CRITICAL_ERROR, 20, PERMISSIONS},
    {"BXS Send Error", VRK_CRITICAL_ERROR, 30, SEND},
    {"BXS Cursor Error", VRK_INFORMATION, 60, CURSOR},
};
constexpr Category CRITICAL = {"BXS Critical Error", VRK_CRITICAL_ERROR, 2, {}};

const Category& FindCategory(long nReason) {
  for (const Category& obCategory : CATEGORIES)
    if (std::ranges::find(obCategory.aReasons, nReason) != obCategory.aReasons.end())
      return obCategory;
  return CRITICAL;
}

} // namespace

UnicodeString CCMEBXSer::GetErrorText(long nReason) {
  const auto it = std::ranges::lower_bound(TEXTS, nReason, std::ranges::less{}, &Text::nReason);
  const bool bKnown = it != TEXTS.end() && it->nReason == nReason;
  return UnicodeString(bKnown ? it->pText : u"Unknown error");
}

unsigned long CCMEBXSer::GetBXSExceptionCode(long nReason, VRK_Severity& nSeverity,
                                             std::string& sCategory) {
  const Category& obCategory = FindCategory(nReason);
  nSeverity = obCategory.nSeverity;
  sCategory = obCategory.pText;
  return obCategory.nCode;
}

// Neither a log that cannot be written nor missing memory must hide the failure that it is about,
// or skip what is still to be done after it.
void CCMEBXSer::PrintError(long nReason) const noexcept {
  try {
    const UnicodeString sText = GetErrorText(nReason);
    CMsg obMsg(UnicodeString(u"bx"), CSeverity::ERR);
    obMsg.AddLine_rob(u"Queue: %S", UCSS::getConstUnicodeStringContent(m_sPath))
        .AddLine_rob(u"BX error, reason code: %ld", nReason)
        .AddLine_rob(u"Error message: %S", UCSS::getConstUnicodeStringContent(sText));
    CLogger::TryLog_b(obMsg);
  } catch (const std::exception&) {
  }
}

unsigned long CCMEBXSer::HandleError(long nReason, const char* pContext) const {
  PrintError(nReason);
  VRK_Severity nSeverity = VRK_NO_SEVERITY;
  std::string sCategory;
  const unsigned long nCode = GetBXSExceptionCode(nReason, nSeverity, sCategory);
  m_obError.SetSeverity(nSeverity);
  m_obError.SetBXError(nReason, GetErrorText(nReason));
  m_obError.appendGenericError("", UnicodeString(sCategory.c_str()), static_cast<int>(nCode),
                               nSeverity);
  UnicodeString sUse;
  UCSS::ssprintf(sUse, u"Error while using queue: %s", UCSS::ucToString(m_sPath).c_str());
  m_obError.appendGenericError("", sUse, 0, VRK_NO_SEVERITY);
  if (pContext) m_obError.appendGenericError("", UnicodeString(pContext), 0, VRK_NO_SEVERITY);
  if (nSeverity >= VRK_MAJOR_ERROR) throw VRKBX_Exception(m_obError);
  return nCode;
}
