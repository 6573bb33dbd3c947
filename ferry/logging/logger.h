#pragma once

#include "ferry/logging/log_writer.h"
#include "ferry/logging/logger_lock.h"
#include "ferry/logging/msg.h"
#include "ferry/text/ucss.h"

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <map>
#include <memory>
#include <utility>
#include <vector>

struct CLogTables;

/// Routes log messages to the writers that its configuration names.
///
/// A configuration is text of lines "destination filters": a destination address (see URIUC) whose
/// scheme selects the kind of writer, and filters "category.severity" separated by ";". "*" stands
/// for every category or severity, a leading "!" for every severity but the named one. Blank lines
/// and lines that start with "#" are skipped; $NODE_NAME and $MODULE_NAME stand for the logger's
/// name. Example: "file:///var/log/a.log?keep=3 *.!DBUG;bx.*".
///
/// Threads: every operation may be called by any thread at any time, except the destructor, which
/// needs the last word. Messages are written at the same time as others; loading, clearing and
/// registering wait until none is under way, and keep new ones waiting until they are done. So old
/// writers are stopped and deleted and new ones started while nobody writes, and the old and the
/// new writer of one file never meet.
///
/// A writer may log, and even reload the configuration, from within Write_v. Its own message then
/// does not hold the reload up: the new writers start at once, and the old ones are stopped and
/// deleted when that message is through. Until then no other thread logs.
///
/// Errors: whatever some writer throws, the message is still given to all the others; then the
/// logging call throws VRKLog_Exception. Where work must go on though a log cannot be written (a
/// full disk), and in destructors, use TryLog_b. Loading a configuration never throws for what the
/// configuration or a writer does wrong: it returns false, the previous configuration stays in
/// force, and the reason is logged under the category "logger". A writer that fails to start is
/// logged too, but does not keep the others from taking over; one that fails to stop is deleted
/// without a word.
class CLogger {
public:
  /// A logger with the name `pName` (shown as the category of messages that have none), the
  /// severities of CSeverity and the default configuration.
  explicit CLogger(const UChar* pName);
  /// Stops and deletes all writers; a process-wide logger is uninstalled first.
  virtual ~CLogger();
  CLogger(const CLogger&) = delete;
  CLogger& operator=(const CLogger&) = delete;

  /// Routes one message. Throws VRKLog_Exception when a writer failed.
  virtual void VLocalLog_v(const CMsg& obMsg);
  /// Registers the console and file factories and loads the default configuration.
  virtual void DefaultConfig_v();

  /// Enters a severity name for filters and output; a name or value that is already known is
  /// replaced.
  void RegisterSeverity_v(const UChar* pName, unsigned nValue);
  /// Enters the factory for a scheme. The factory is not owned; it must outlive the logger.
  void RegisterFactory_v(const UChar* pScheme, CLogWriterFactory* pobFactory);

  /// Puts a configuration into force; false, and the old one stays, when any of it is wrong.
  bool LoadConfig_b(const UnicodeString& sText);
  /// Loads the file and watches it: when its modification time changes it is loaded again, looked
  /// at no more than once a minute and only when a message is logged.
  bool LoadConfigFile_b(const UChar* pPath);
  /// Loads again what was loaded last, file or text; true when there is nothing.
  bool ReloadConfig_b();
  /// A filter mask and the category it holds for; an empty category means all.
  using Filter = std::pair<UnicodeString, unsigned>;
  /// Parses one filter list; false when any of it is wrong or it is empty.
  bool ParseMap_b(std::vector<Filter>& obFilters, const UnicodeString& sText) const;
  /// Takes all writers out of service.
  void Clear_v();

  /// Installs the process-wide logger that the functions below use; null uninstalls. No ownership
  /// is taken: the logger must stay until it is uninstalled and no thread logs any more.
  static void SetGlobal_v(CLogger* pobLogger);
  /// Log through the process-wide logger; nothing happens while there is none. These throw
  /// VRKLog_Exception when a writer failed.
  static void Log_v(const CMsg& obMsg);
  static void Log_v(unsigned nSeverity, const UChar* pFormat, ...);
  static void Log_v(const UnicodeString& sCategory, unsigned nSeverity, const UChar* pFormat, ...);
  static void VLog_v(unsigned nSeverity, const UChar* pFormat, va_list args);
  static void VLog_v(const UnicodeString& sCategory, unsigned nSeverity, const UChar* pFormat,
                     va_list args);
  /// The same without exceptions: false when a writer failed.
  static bool TryLog_b(const CMsg& obMsg) noexcept;
  static bool TryLog_b(unsigned nSeverity, const UChar* pFormat, ...) noexcept;
  static bool TryLog_b(const UnicodeString& sCategory, unsigned nSeverity, const UChar* pFormat,
                       ...) noexcept;

  /// Null while there is none.
  static std::atomic<CLogger*> pobGlobalLogger;

private:
  using TablesPtr = std::shared_ptr<const CLogTables>;
  /// Where a configuration came from: a file, or the text alone.
  struct Source {
    UnicodeString m_sFile;
    int64_t m_nTime = 0;
  };

  bool Load_b(const UnicodeString& sText, const Source& obSource);
  bool ParseConfig_b(CLogTables& obTables, const UnicodeString& sText);
  bool ParseLine_b(CLogTables& obTables, UnicodeString sLine);
  std::unique_ptr<CLogWriter> NewWriter_pob(CLogWriterFactory& obFactory, UnicodeString sLine);
  void WatchFile_v(const CMsg& obMsg);
  bool TimeToLook_b(const CMsg& obMsg);
  void Report_v(unsigned nSeverity, const UChar* pFormat, ...);
  void Report_v(const CMsg& obMsg);

  CLogWriterFactory* FindFactory_pob(const UnicodeString& sScheme) const;
  // These three need the lock.
  bool FindSeverity_b(const UnicodeString& sName, unsigned& nValue) const;
  UnicodeString SeverityText_s(unsigned nSeverity) const;
  void Replace_v(TablesPtr pobTables);

  const UnicodeString m_sName;
  mutable CLoggerLock m_obLock; // guards what follows up to m_obSource
  std::map<UnicodeString, unsigned> m_obSeverities;
  std::map<unsigned, UnicodeString> m_obSeverityNames;
  std::map<UnicodeString, CLogWriterFactory*> m_obFactories;
  TablesPtr m_pobTables; // never null
  UnicodeString m_sConfig;
  Source m_obSource;
  std::atomic<int64_t> m_nLastCheck = 0;
  std::atomic<bool> m_bLooking = false; // some thread looks at the file
};

/// The logger of the command-line tool.
class CVRKLogger : public CLogger {
public:
  explicit CVRKLogger(const UChar* pModule) : CLogger(pModule) {}
};
