#include "tests/manager/contract/vocabulary.h"

#include <ctime>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <unistd.h>

/// The other process of the scenarios: does what standard input says, a command a line, and answers
/// with a line each. A trailing "later" makes a put or get part of the unit of work.
namespace {

using namespace contract;

std::int64_t microseconds(clockid_t clock) {
  timespec time{};
  ::clock_gettime(clock, &time);
  return std::int64_t{time.tv_sec} * 1'000'000 + time.tv_nsec / 1000;
}

class Worker {
public:
  explicit Worker(const char* library) : m_api(library) {}

  std::string answer(const std::string& line) {
    std::istringstream words(line);
    std::ostringstream out;
    std::string verb;
    words >> verb;
    if (verb == "connect") connect(words, out);
    if (verb == "nobody") out << ::setuid(65534);
    if (verb == "cpu") out << microseconds(CLOCK_PROCESS_CPUTIME_ID);
    if (verb == "commit") out << mine().commit();
    if (verb == "backout") out << mine().backout();
    if (verb == "disconnect") out << mine().disconnect();
    if (verb == "put") put(words, out);
    if (verb == "get") get(words, out);
    if (verb == "take") take(words, out);
    if (verb == "write") write(words, out);
    if (verb == "read") read(words, out);
    if (verb == "move") move(words);
    std::string text = out.str();
    for (char& c : text)
      if (c == '/') c = ' ';
    return text;
  }

private:
  Connection& mine() {
    if (!m_connection) m_connection = std::make_unique<Connection>(m_api);
    return *m_connection;
  }

  Queue& queue(std::istream& words) {
    std::string name;
    words >> name;
    const auto found = m_queues.find(name);
    return found != m_queues.end() ? found->second : m_queues[name] = mine().open(name);
  }

  static bool later(std::istream& words) {
    std::string word;
    words >> word;
    return word == "later";
  }

  void connect(std::istream& words, std::ostream& out) {
    std::string manager;
    words >> manager;
    m_connection = std::make_unique<Connection>(m_api, manager);
    out << m_connection->codes;
  }

  /// put QUEUE TEXT
  void put(std::istream& words, std::ostream& out) {
    Queue& to = queue(words);
    std::string text;
    words >> text;
    out << to.put(text, later(words) ? kPutLater : PutHow{});
  }

  /// get QUEUE WAIT: codes, text, and when it came
  void get(std::istream& words, std::ostream& out) {
    Queue& from = queue(words);
    GetHow how{.options = BXGMO_WAIT};
    words >> how.wait;
    if (later(words)) how.options |= BXGMO_SYNCPOINT;
    const Message message = from.get(how);
    out << message.codes << ' ' << message.text << ' ' << microseconds(CLOCK_MONOTONIC);
  }

  /// take QUEUE COUNT: how many it took
  void take(std::istream& words, std::ostream& out) {
    Queue& from = queue(words);
    int wanted = 0, taken = 0;
    words >> wanted;
    while (taken < wanted && from.get(kTake).codes == kOk) ++taken;
    out << taken;
  }

  /// write QUEUE STEM COUNT EACH: commits every EACH messages
  void write(std::istream& words, std::ostream& out) {
    Queue& to = queue(words);
    std::string stem;
    int count = 0, each = 1, done = 0;
    words >> stem >> count >> each;
    for (const std::string& text : numbered(stem, count)) {
      if (to.put(text, kPutLater) == kOk) ++done;
      if (done % each == 0) mine().commit();
    }
    out << mine().commit() << ' ' << done;
  }

  /// read QUEUE FILE EACH: to the file until "end" comes; EACH 0 without a unit of work
  void read(std::istream& words, std::ostream& out) {
    Queue& from = queue(words);
    std::string file;
    int each = 0, count = 0;
    words >> file >> each;
    std::ofstream to(file);
    GetHow how{.options = BXGMO_WAIT | (each > 0 ? BXGMO_SYNCPOINT : 0), .wait = 20'000};
    for (Message m = from.get(how); m.codes == kOk && m.text != "end"; m = from.get(how)) {
      to << m.text << '\n';
      if (each > 0 && ++count % each == 0) mine().commit();
    }
    out << mine().commit();
  }

  /// move FROM TO: until it is killed
  void move(std::istream& words) {
    Queue &from = queue(words), &to = queue(words);
    for (int count = 1;; ++count) {
      const Message m = from.get({.options = BXGMO_WAIT | BXGMO_SYNCPOINT, .wait = 10});
      if (m.codes == kOk) to.put(m.text, kPutLater);
      if (count % 97 == 0)
        mine().backout();
      else if (count % 3 == 0 || m.codes != kOk)
        mine().commit();
    }
  }

  Api m_api;
  std::unique_ptr<Connection> m_connection;
  std::map<std::string, Queue> m_queues;
};

} // namespace

int main(int, char** arguments) {
  Worker worker(arguments[1]);
  for (std::string line; std::getline(std::cin, line);)
    std::cout << worker.answer(line) << std::endl;
}
