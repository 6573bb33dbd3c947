#pragma once

#include "tests/manager/contract/api.h"

#include <map>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

/// The words in which the scenarios are written: thin wrappers over the entry points that hide
/// nothing but their arguments.
namespace contract {

/// How a call ended.
struct Codes {
  BXLONG completion = -1;
  BXLONG reason = -1;
  bool operator==(const Codes&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Codes& codes);

constexpr Codes kOk{BXCC_OK, BXRC_NONE};
constexpr Codes failed(BXLONG reason) { return {BXCC_FAILED, reason}; }
constexpr Codes warning(BXLONG reason) { return {BXCC_WARNING, reason}; }

struct PutHow {
  BXLONG options = BXPMO_NONE;
  BXLONG priority = BXPRI_AS_Q_DEF;
  BXLONG expiry = BXEI_UNLIMITED;
  std::string messageId = {};
  std::string correlationId = {};
};
const PutHow kPutLater{.options = BXPMO_SYNCPOINT}; ///< as part of the unit of work

struct GetHow {
  BXLONG options = BXGMO_NO_WAIT;
  BXLONG wait = 0;
  std::size_t room = 1 << 16;
  std::string messageId = {};
  std::string correlationId = {};
};
const GetHow kTake{.options = BXGMO_SYNCPOINT}; ///< as part of the unit of work

struct Message {
  Codes codes;
  std::string text = {}; ///< what was written to the buffer
  BXLONG length = -1;    ///< the true one
  BXMD descriptor = BXMD_DEFAULT;
};

/// One open queue. A copy names the same handle; the connection's end ends it.
struct Queue {
  const Api* api = nullptr;
  BXHCONN connection = BXHC_UNUSABLE;
  BXHOBJ object = BXHO_UNUSABLE;
  Codes codes = {}; ///< of the open

  Codes put(std::string_view text, const PutHow& how = {}) const;
  Codes put(BXMD& descriptor, std::string_view text) const;
  Message get(const GetHow& how = {}) const;
  Message browseFirst() const { return get({.options = BXGMO_BROWSE_FIRST}); }
  Message browseNext() const { return get({.options = BXGMO_BROWSE_NEXT}); }
  Message underCursor(const GetHow& how = {}) const;
  /// Gets everything there is, each by itself.
  std::vector<std::string> drain() const;
  std::vector<std::string> browse() const;
  Codes close();
};

/// A bag, deleted at the end of its scope.
class Bag {
public:
  explicit Bag(const Api& api);
  ~Bag();
  Bag(const Bag&) = delete;
  Bag& operator=(const Bag&) = delete;
  BXHBAG handle() const { return m_handle; }

  Bag& add(BXLONG selector, BXLONG value);
  Bag& add(BXLONG selector, const std::string& value);
  Bag& ask(BXLONG selector);

private:
  const Api& m_api;
  BXHBAG m_handle = BXHB_UNUSABLE;
};

/// What a command answered: how the call ended, how the command itself did, and the attributes.
struct Answer {
  Codes codes;
  Codes own;
  std::map<BXLONG, BXLONG> numbers = {};
  std::map<BXLONG, std::string> texts = {};
};

/// One connection, which ends with its scope.
class Connection {
public:
  explicit Connection(const Api& api, const std::string& manager = "");
  ~Connection();
  Connection(Connection&& other) noexcept;
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  Codes codes; ///< of the connect
  BXHCONN handle = BXHC_UNUSABLE;

  static constexpr BXLONG kAll = BXOO_INPUT_SHARED | BXOO_BROWSE | BXOO_OUTPUT;
  Queue open(const std::string& queue, BXLONG options = kAll, const std::string& manager = "");
  Codes commit();
  Codes backout();
  Codes disconnect();

  Answer command(BXLONG command, Bag& arguments);
  Codes createQueue(const std::string& queue, const std::map<BXLONG, BXLONG>& attributes = {},
                    BXLONG how = BXCMD_CREATE_QUEUE);
  Codes deleteQueue(const std::string& queue, BXLONG purge = BXPO_NO);
  Answer inquire(const std::string& queue);
  BXLONG depth(const std::string& queue);

private:
  const Api* m_api;
};

/// "stem-0", "stem-1", ...
std::vector<std::string> numbered(const std::string& stem, int count);

} // namespace contract
