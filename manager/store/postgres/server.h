#pragma once

#include "manager/base/failure.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct pg_conn;
struct pg_result;

namespace bxm {

/// What the database said, with its five characters. Reason 2009 when it says nothing any more.
class ServerError : public Failure {
public:
  ServerError(BXLONG reason, std::string state, const std::string& text)
      : Failure(reason, text), m_state(std::move(state)) {}
  const std::string& state() const { return m_state; }

private:
  std::string m_state;
};

/// The parameters of a statement, in the order of its $1, $2, ...: numbers, texts, and arrays in
/// the database's binary form.
class Parameters {
public:
  Parameters& add(std::int32_t number);
  Parameters& add(std::int64_t number);
  Parameters& add(std::string_view bytes);
  Parameters& add(const std::vector<std::int32_t>& numbers);
  /// An array that was made by ArrayOf.
  Parameters& addRaw(std::string binary);

  const std::vector<std::string>& values() const { return m_values; }

private:
  std::vector<std::string> m_values;
};

/// An array parameter that grows element by element.
class ArrayOf {
public:
  enum class Element : std::uint32_t { kBytea = 17, kTid = 27, kInt8 = 20, kInt2 = 21, kInt4 = 23 };
  explicit ArrayOf(Element element);
  void addNull();
  void add(std::int16_t number) { addNumber(number); }
  void add(std::int32_t number) { addNumber(number); }
  void add(std::int64_t number) { addNumber(number); }
  void add(std::string_view bytes);
  std::int32_t size() const { return m_size; }
  /// The whole; empty again afterwards.
  std::string take();

private:
  void begin();
  template <typename Number>
  void addNumber(Number number);

  Element m_element;
  std::int32_t m_size = 0;
  std::string m_bytes;
};

/// What one statement answered. Values are valid as long as the reply.
class Reply {
public:
  explicit Reply(pg_result* result);
  int rows() const;
  int columns() const;
  std::string command() const; ///< what was done, as the server names it
  bool isNull(int row, int column) const;
  std::int64_t number(int row, int column) const; ///< of any integer type, or a truth value
  std::string_view bytes(int row, int column) const;
  std::string text(int row, int column) const { return std::string(bytes(row, column)); }

private:
  struct Clear {
    void operator()(pg_result* result) const;
  };
  std::unique_ptr<pg_result, Clear> m_result;
};

/// One connection to a database server. Statements travel together: those between two calls of run
/// cost one journey there and back. Not thread-safe.
class Server {
public:
  /// The URI is libpq's own; what it does not say about keep-alive and time-outs is set. path: the
  /// schema whose names the statements use. Throws Failure: 2059, 2035, 2025.
  Server(const std::string& uri, const std::string& path);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  /// Appends a statement, which is prepared when it comes for the first time; unless it is so long
  /// that it names much which soon is otherwise.
  void add(const std::string& statement, const Parameters& parameters = {});
  /// What follows is apart from what precedes: it is done even when that fails.
  void divide();
  /// Sends what was added and returns the replies. Throws the first ServerError; what was added
  /// behind it up to the next division was not done.
  std::vector<Reply> run();
  /// The same without a wait: whoever runs something next meets the replies, which are dropped.
  void send();
  Reply runOne(const std::string& statement, const Parameters& parameters = {});
  /// Several statements without parameters, as a text.
  void execute(const std::string& script);

  /// False once the connection is lost; every call then throws 2009.
  bool alive() const { return m_connection != nullptr; }
  /// A transaction is open in which a statement failed: nothing but its rollback is left to do.
  bool hasFailed() const;
  /// Waits until the server announces something on a channel that this connection listens to.
  bool awaitNotice(std::chrono::steady_clock::time_point until);
  /// True when something was announced since the last call.
  bool takeNotices();

private:
  struct Sent {
    bool isDivision = false;
    std::string prepares{}; ///< the statement that counts as prepared when this succeeds
    bool isStatement = false;
    bool isDropped = false; ///< nobody waits for its reply
  };
  [[noreturn]] void lose(const std::string& why);
  void push();
  const std::string& prepare(const std::string& statement);
  void forgetMany();
  pg_result* next();
  void readMore(std::chrono::steady_clock::time_point until);
  void collect(std::vector<Reply>* replies);

  pg_conn* m_connection = nullptr;
  std::map<std::string, std::string> m_prepared; ///< names by statements
  std::vector<Sent> m_sent;
  std::uint64_t m_names = 0;
  bool m_unfinished = false; ///< something was added behind the last division
};

} // namespace bxm
