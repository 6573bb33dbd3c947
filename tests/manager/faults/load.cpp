#include "tests/manager/faults/load.h"

#include "tests/manager/faults/words.h"

#include <chrono>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <functional>
#include <random>
#include <thread>
#include <unistd.h>

namespace faults {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

class Dice {
public:
  explicit Dice(unsigned seed) : m_random(seed) {}
  /// 0 to sides - 1.
  int roll(int sides) { return static_cast<int>(m_random() % static_cast<unsigned>(sides)); }

private:
  std::mt19937 m_random;
};

// ---- Storm --------------------------------------------------------------------------------------

class Storm {
public:
  explicit Storm(const std::vector<std::string>& arguments)
      : m_log(::open(arguments[1].c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600)),
        m_worker(arguments[2]), m_dice(static_cast<unsigned>(std::atoll(arguments[3].c_str()))),
        m_end(Clock::now() + milliseconds(std::atoi(arguments[4].c_str()))) {}

  int run() {
    if (!call("connect", [&] { return m_connection.connect(); })) return 1;
    while (Clock::now() < m_end) step();
    call("disconnect", [&] { return m_connection.disconnect(); });
    return 0;
  }

private:
  void step() {
    const int dice = m_dice.roll(100);
    if (dice < 70) return unit();
    if (dice < 80) return put(false);
    if (dice < 90) return get(false);
    if (dice < 95) return browse();
    if (dice < 97) return reconnect();
    if (dice < 98) return ownQueue();
    inquire();
  }

  void unit() {
    const int calls = 1 + m_dice.roll(6);
    const int gets = m_dice.roll(5); // 0: puts only, 4: gets only
    for (int i = 0; i < calls; ++i) m_dice.roll(4) < gets ? get(true) : put(true);
    if (m_dice.roll(4) > 0)
      call("commit", [&] { return m_connection.commit(); });
    else
      call("backout", [&] { return m_connection.backout(); });
  }

  std::string queue() { return kStormQueues[static_cast<std::size_t>(m_dice.roll(3))]; }

  void put(bool syncpoint) {
    const BXLONG priority = m_dice.roll(5) == 0 ? 7 : 0;
    std::string name = m_worker + "-" + std::to_string(++m_count) + "-p" + std::to_string(priority);
    if (m_dice.roll(30) == 0) name += "@" + std::to_string(1000 + m_dice.roll(20000));
    const std::string q = queue();
    call("put " + q + (syncpoint ? " s " : " d ") + name, [&] {
      return m_connection.put(q, name, {syncpoint ? BXPMO_SYNCPOINT : BXPMO_NONE, priority});
    });
  }

  void get(bool syncpoint) {
    const std::string q = queue();
    const BXLONG wait = m_dice.roll(10) == 0 ? 20 : 0;
    call("get " + q + (syncpoint ? " s" : " d"),
         [&] { return m_connection.get(q, syncpoint, wait, m_more); });
  }

  void browse() {
    const std::string q = queue();
    std::vector<std::string> names;
    call("browse " + q, [&] {
      const Codes codes = m_connection.browse(q, names);
      for (const std::string& name : names) m_more += " " + name;
      return codes;
    });
  }

  void inquire() {
    const std::string q = queue();
    BXLONG depth = 0;
    call("depth " + q, [&] { return m_connection.depth(q, depth); });
  }

  void reconnect() {
    call("disconnect", [&] { return m_connection.disconnect(); });
    if (!call("connect", [&] { return m_connection.connect(); })) ::_exit(1);
  }

  /// A queue of its own comes and goes, with messages on it and some of them taken.
  void ownQueue() {
    const std::string q = "OWN." + m_worker;
    call("create", [&] { return m_connection.create(q, 100); });
    std::string name;
    for (int i = 0; i < 3; ++i) call("own", [&] { return m_connection.put(q, "x"); });
    call("own", [&] { return m_connection.get(q, true, 0, name); });
    call("delete", [&] { return m_connection.remove(q, true); });
    call("backout", [&] { return m_connection.backout(); });
  }

  bool call(const std::string& what, const std::function<Codes()>& body) {
    m_more.clear();
    write("i " + what);
    const Codes codes = body();
    write("o " + std::to_string(codes.completion) + " " + std::to_string(codes.reason) + " " +
          m_more);
    // After a commit the connection may be there again.
    if (codes.reason == BXRC_CONNECTION_BROKEN && what != "commit") ::_exit(1);
    return codes == kOk;
  }

  void write(const std::string& text) {
    const auto micros =
        std::chrono::duration_cast<std::chrono::microseconds>(Clock::now().time_since_epoch());
    const std::string line = std::to_string(micros.count()) + " " + text + "\n";
    if (::write(m_log, line.data(), line.size()) != static_cast<ssize_t>(line.size())) ::_exit(3);
  }

  int m_log;
  std::string m_worker;
  Dice m_dice;
  Clock::time_point m_end;
  Connection m_connection;
  std::string m_more;
  int m_count = 0;
};

// ---- Power --------------------------------------------------------------------------------------

void mark(const std::string& text) {
  static auto* const record =
      reinterpret_cast<void (*)(const char*)>(::dlsym(RTLD_DEFAULT, "faultsMark"));
  if (record) record(text.c_str());
}

class PowerLoad {
public:
  explicit PowerLoad(const std::vector<std::string>& arguments)
      : m_dice(static_cast<unsigned>(std::atoll(arguments[1].c_str()))),
        m_units(std::atoi(arguments[2].c_str())), m_bulk(std::atoi(arguments[3].c_str())) {}

  int run() {
    if (m_connection.connect() != kOk) return 1;
    if (m_units == 0) return severalFiles();
    for (int unit = 0; unit < m_units; ++unit) {
      const int dice = m_dice.roll(12);
      if (unit == m_units / 2)
        bulk();
      else if (dice < 5)
        inUnit(0, 1 + m_dice.roll(8));
      else if (dice < 7)
        inUnit(1 + m_dice.roll(4), 0);
      else if (dice < 9)
        inUnit(1 + m_dice.roll(2), 1 + m_dice.roll(3));
      else if (dice < 11)
        direct(1 + m_dice.roll(15));
      else
        large();
      if (m_dice.roll(8) == 0) std::this_thread::sleep_for(milliseconds(m_dice.roll(200)));
    }
    return 0; // the process ends without a disconnect
  }

private:
  /// Marks: "try gets puts" before the commit, "did" when it has returned.
  void inUnit(int gets, int puts, int size = 0) {
    std::string got, put;
    for (int i = 0; i < gets; ++i)
      if (const std::string name = get(true); !name.empty()) got += " -" + name;
    for (int i = 0; i < puts; ++i) {
      const bool kept = m_dice.roll(12) == 0;
      const std::string name = newName(kept ? "x" : "m", size);
      m_connection.put("Q", name, {BXPMO_SYNCPOINT, kept ? 0 : 1});
      put += " +" + name;
    }
    mark("try" + got + put);
    if (m_connection.commit() == kOk) mark("did");
    m_there += puts;
  }

  void direct(int gets) {
    for (int i = 0; i < gets; ++i) {
      mark("try");
      if (const std::string name = get(false); !name.empty()) mark("did -" + name);
    }
  }

  std::string get(bool syncpoint) {
    std::string name;
    if (m_connection.get("Q", syncpoint, 0, name) == kOk) --m_there;
    return name;
  }

  /// More gets in a row than may wait for their deletion.
  void bulk() {
    inUnit(0, m_bulk + 100);
    direct(m_bulk);
  }

  /// Fills files of the log and empties them, but for a few old messages.
  void large() {
    inUnit(0, 10 + m_dice.roll(20), 300'000);
    for (const int left = m_dice.roll(12); m_there > left;)
      m_dice.roll(2) ? inUnit(1 + m_dice.roll(8), 0) : direct(1 + m_dice.roll(20));
    // One stays in its file, others are moved to another one and got from there.
    const std::string held = get(true);
    std::this_thread::sleep_for(milliseconds(100 + m_dice.roll(200)));
    direct(m_dice.roll(4));
    mark("try" + (held.empty() ? "" : " -" + held));
    if (m_connection.commit() == kOk) mark("did");
  }

  /// A unit of work of three pieces, in two files. Of the second, with the last piece, all is got:
  /// it is made free.
  int severalFiles() {
    std::string put;
    for (int i = 0; i < 28; ++i) {
      const std::string name = newName(i < 16 ? "x" : "m", 1'000'000);
      m_connection.put("Q", name, {BXPMO_SYNCPOINT, i < 16 ? 0 : 1});
      put += " +" + name;
    }
    mark("try" + put);
    if (m_connection.commit() == kOk) mark("did");
    for (const int gets : {11, 1}) {
      direct(gets);
      m_connection.disconnect();
      m_connection.connect();
    }
    return 0;
  }

  std::string newName(const std::string& stem, int size) {
    const std::string name = stem + std::to_string(++m_count);
    if (size == 0 && m_dice.roll(8) == 0) size = 100 + m_dice.roll(12000);
    return size == 0 ? name : name + "@" + std::to_string(size);
  }

  Dice m_dice;
  int m_units, m_bulk;
  Connection m_connection;
  int m_count = 0, m_there = 0;
};

} // namespace

int runLoad(const std::vector<std::string>& arguments) {
  return arguments[0] == "storm" ? Storm(arguments).run() : PowerLoad(arguments).run();
}

} // namespace faults
