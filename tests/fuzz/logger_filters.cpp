#include "ferry/logging/logger.h"
#include "fuzz_check.h"
#include "tests/ferry/logging/recording_writer.h"

namespace {

struct SilentLogger : CLogger {
  SilentLogger() : CLogger(u"fuzz") {
    RegisterFactory_v(u"silent", &m_recorder);
    LoadConfig_b(u"silent://x *.*");
  }
  ~SilentLogger() override { Clear_v(); }
  Recorder m_recorder;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static SilentLogger logger;
  logger.m_recorder.m_written.clear();
  logger.m_recorder.m_events.clear();
  const auto text = UnicodeString::fromUTF8(
      icu::StringPiece(reinterpret_cast<const char*>(data), static_cast<int32_t>(size)));
  std::vector<CLogger::Filter> filters;
  if (!logger.ParseMap_b(filters, text)) return 0;
  FUZZ_CHECK(!filters.empty());
  // A list of filters is one field of a line.
  const bool oneField = text.indexOf(u' ') < 0 && text.indexOf(u'\t') < 0 &&
                        text.indexOf(u'\u00A0') < 0 && text.indexOf(u'\n') < 0 &&
                        text.indexOf(u'$') < 0 && text == UnicodeString(text).trim();
  FUZZ_CHECK(!oneField || logger.LoadConfig_b(u"silent://x " + text));
  for (const auto& [category, mask] : filters)
    logger.VLocalLog_v(CMsg(category, mask).AddLine_rob(u"text"));
  return 0;
}
