#include "ferry/config/parameter_store.h"
#include "ferry/config/settings.h"
#include "ferry/errors/exception.h"
#include "ferry/logging/logger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Row = const char* [7];

/// A store whose back end is a list in memory.
class MemoryStore : public CCMEParameterStore {
public:
  struct Entry {
    const UChar *group, *name, *value;
  };
  explicit MemoryStore(std::vector<Entry> entries = {}) : m_entries(std::move(entries)) {}
  void read() override {
    for (const Entry& e : m_entries) setFound(e.group, e.name, e.value);
  }
  void write() override {}

  template <size_t N>
  MemoryStore& declare(Row (&rows)[N]) {
    initialize(u"", rows, N);
    return *this;
  }
  MemoryStore& found() {
    read();
    return *this;
  }
  std::string value(const UChar* group, const UChar* name) const {
    const CCMEParameter* p = find(group, name);
    return p ? UCSS::ucsToUTF8(p->value()) : "(none)";
  }

private:
  std::vector<Entry> m_entries;
};

/// The messages of the exception that the call throws.
template <typename Call>
std::vector<std::string> reported(Call call) {
  std::vector<std::string> lines;
  try {
    call();
  } catch (const VRK_Exception& e) {
    EXPECT_EQ(e.Severity(), VRK_CRITICAL_ERROR);
    for (int n = 0; n < e.Count(); ++n) {
      EXPECT_EQ(e.ExceptionCode(n), 0);
      lines.emplace_back(e.Message(n));
    }
  }
  return lines;
}

const std::string kHeading = "The following issues were identified during configuration loading:";

TEST(Parameter, IsDeclaredByARow) {
  Row row = {"Queues", "Depth", "Integer", "text", "5", "YES", "y"};
  const CCMEParameter p(row);
  EXPECT_EQ(p.m_nType, CCMEParameter::INTEGER);
  EXPECT_EQ(p.m_nStoreType, CCMEParameter::INTEGER);
  EXPECT_FALSE(p.m_bRequired);
  EXPECT_TRUE(p.m_bQuiet && p.m_bCurrent && p.m_bTypeCheck && !p.m_bFound);
  EXPECT_EQ(CCMEParameter::typeOf(u"LONG"), CCMEParameter::STRING);
  EXPECT_EQ(CCMEParameter::typeWord(3), u"UNKNOWN TYPE");
}

TEST(Parameter, IsTrueForFewWords) {
  CCMEParameter p(u"g", u"n");
  p.m_sDefault = u"y";
  EXPECT_TRUE(p.asBoolean());
  for (const UChar* yes : {u"yes", u"Y", u"True", u"t", u"1"}) {
    p.setStoreValue(yes);
    EXPECT_TRUE(p.asBoolean());
  }
  for (const UChar* no : {u"", u"on", u"0", u"11", u"yes "}) {
    p.setStoreValue(no);
    EXPECT_FALSE(p.asBoolean());
  }
}

TEST(ParameterStore, FindsWithoutRegardToCase) {
  MemoryStore store({{u"Queues", u"Depth", u"5000x"}, {u"queues", u"DEPTH", u"6000"}});
  store.found();
  EXPECT_EQ(store.asULong(u"qUEUES", u"depth", u"1"), 6000U);
  EXPECT_EQ(store.asULong(u"queues", u"other", u"17"), 17U);
  EXPECT_EQ(store.parameters().size(), 1U);
  EXPECT_EQ(store.parameters().begin()->first, u"QUEUES:DEPTH");
  std::vector<const CCMEParameter*> group;
  store.getAllParamsInGroup(u"QUEUES", group);
  ASSERT_EQ(group.size(), 1U);
  EXPECT_EQ(group[0]->m_sGroup, u"Queues");
  store.getAllParamsInGroup(u"none", group);
  EXPECT_THAT(group, IsEmpty());
}

TEST(ParameterStore, TheActiveGroupIsASectionThatExists) {
  Row rows[] = {{"*", "a", "STRING", "", "x", "N", "N"}, {"Fix", "a", "STRING", "", "y", "N", "N"}};
  MemoryStore store({{u"Sect", u"a", u"1"}});
  store.initialize(u"Sect", rows, 2);
  EXPECT_EQ(store.activeGroup(), u"Sect");
  EXPECT_EQ(store.asULong(u"*", u"a", u"9"), 9U) << "what was read first is discarded";
  store.found();
  EXPECT_EQ(store.asULong(u"*", u"a", u"9"), 1U);

  UnicodeString app;
  GetAppName_v(app);
  for (const UChar* section : {u"sect", u"Fix", u""}) {
    store.initialize(section, rows, 2);
    EXPECT_EQ(store.activeGroup(), app);
    EXPECT_EQ(store.parameters().size(), 2U);
  }
}

TEST(Checks, ListMissingThenMistyped) {
  Row rows[] = {{"Q", "type", "INTEGER", "", "", "N", "N"},
                {"Q", "one", "STRING", "", "", "Y", "N"},
                {"Q", "Two", "STRING", "", "", "y", "N"},
                {"Q", "hush", "STRING", "", "", "Y", "Y"}};
  MemoryStore store;
  store.declare(rows);
  store.parameters().at(u"Q:TYPE").m_nStoreType = CCMEParameter::STRING;
  EXPECT_THAT(reported([&] { store.handleErrors(); }),
              ElementsAre(kHeading, "  Missing required parameters: ", "one", "Two",
                          "  Datatype mismatch (programmed vs. store): ",
                          "Group: Q Name: type [INTEGER] vs. [STRING]"));
  Row quiet[] = {{"Q", "hush", "INTEGER", "", "", "N", "Y"}};
  store.declare(quiet).parameters().at(u"Q:HUSH").m_nStoreType = CCMEParameter::STRING;
  EXPECT_THAT(reported([&] { store.handleErrors(); }), ElementsAre(kHeading));
}

TEST(Checks, WarnOfDefaults) {
  Row rows[] = {{"Queues", "Depth", "INTEGER", "", "5000", "N", "N"},
                {"Queues", "Hush", "INTEGER", "", "1", "N", "Y"},
                {"Queues", "Need", "INTEGER", "", "2", "Y", "N"}};
  ::testing::internal::CaptureStdout();
  CLogger logger(u"mod");
  ASSERT_TRUE(logger.LoadConfig_b(u"console://stdout/?style=bare mod.DBUG"));
  CLogger::SetGlobal_v(&logger);
  MemoryStore store;
  store.declare(rows).handleWarnings();
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "Defaulted parameter [Depth] in section [Queues], using value [5000]\n");
  ASSERT_TRUE(logger.LoadConfig_b(u"file:///dev/full *.*"));
  EXPECT_NO_THROW(store.handleWarnings());
}

TEST(Reconcile, ReportsAllConflicts) {
  Row rows[] = {{"g", "bool", "BOOLEAN", "", "", "N", "N"},
                {"g", "hush", "STRING", "", "", "N", "Y"},
                {"g", "number", "INTEGER", "how many", "", "N", "N"}};
  MemoryStore first({{u"g", u"bool", u"yes"},
                     {u"g", u"number", u"07"},
                     {u"g", u"text", u"a"},
                     {u"g", u"hush", u"secret"}});
  MemoryStore same({{u"g", u"bool", u"T"}, {u"g", u"number", u" 7"}, {u"g", u"text", u"a"}});
  MemoryStore other({{u"g", u"bool", u"no"},
                     {u"g", u"number", u"8"},
                     {u"g", u"text", u"A"},
                     {u"g", u"hush", u"other"}});
  first.declare(rows).found();
  EXPECT_NO_THROW(first.compare(same.found()));
  EXPECT_NO_THROW(first.compare(MemoryStore().declare(rows))) << "not found is no conflict";
  EXPECT_THAT(reported([&] { first.compare(other.found()); }),
              ElementsAre(kHeading, "  Conflicting parameters: ", "    g:bool (-) [yes] vs. [no]",
                          "[...]", "    g:number (how many) [07] vs. [8]",
                          "    g:text (-) [a] vs. [A]"));
}

TEST(Reconcile, ChoosesTheUnion) {
  Row rows[] = {{"g", "both", "STRING", "", "d", "N", "N"},
                {"g", "none", "STRING", "", "d", "N", "N"},
                {"g", "second", "STRING", "", "d", "N", "N"}};
  Row theirs[] = {{"g", "both", "INTEGER", "", "", "N", "N"},
                  {"g", "none", "STRING", "", "other", "N", "N"},
                  {"g", "unset", "STRING", "", "other", "N", "N"}};
  MemoryStore first({{u"g", u"both", u"1"}});
  MemoryStore second({{u"g", u"both", u"01"}, {u"g", u"second", u"2"}, {u"g", u"new", u"3"}});
  first.declare(rows).found();
  MemoryStore chosen;
  chosen.chooseActiveParameters(first, second.declare(theirs).found());
  std::string values;
  for (const UChar* name : {u"both", u"none", u"second", u"new", u"unset"})
    values += chosen.value(u"g", name) + " ";
  EXPECT_EQ(values, "1 d 2 3 (none) ");
  for (const auto& [key, p] : chosen.parameters()) EXPECT_TRUE(p.m_bFound && p.m_bCurrent);
  EXPECT_EQ(chosen.activeGroup(), first.activeGroup());

  MemoryStore disagreeing({{u"g", u"both", u"2"}});
  EXPECT_THROW(chosen.chooseActiveParameters(chosen, disagreeing.found()), VRK_Exception);
  EXPECT_EQ(chosen.parameters().size(), 4U);
}

} // namespace
