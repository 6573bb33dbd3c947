#pragma once

#include "manager/base/failure.h"
#include "manager/store/message.h"
#include "manager/store/put_batch.h"
#include "manager/store/store.h"

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>

namespace bxm {

/// A queue as one object handle has it open.
struct OpenQueue {
  std::shared_ptr<StoreQueue> queue;
  bool input, browse, output;
  std::optional<Position> cursor; ///< the message last browsed
  bool hasGot = false, hasPut = false; ///< so the store was told
};

/// One connection: its open queues and its unit of work. Calls may come from any thread and run one
/// after the other. What a method throws is a Failure.
class Connection {
public:
  /// An empty name connects to the default manager.
  explicit Connection(std::string_view manager);

  /// options: BXOO_*, known to be consistent. object receives the handle.
  Codes open(std::string_view queue, std::string_view manager, BXLONG options, BXHOBJ& object);
  Codes close(BXHOBJ object);

  struct PutRequest {
    BXMD& descriptor;
    BXPMO& options; ///< known to be consistent; the resolved names are set
    std::string_view data;
  };
  Codes put(BXHOBJ object, const PutRequest& request);

  struct GetRequest {
    BXMD& descriptor;
    BXLONG options;
    BXLONG matchOptions;
    BXLONG wait; ///< milliseconds; 0 none, -1 for ever
    char* buffer;
    std::size_t bufferLength;
    BXCHAR* queueName;         ///< BX_NAME_LENGTH characters, set when there is a message
    BXLONG dataLength = 0;     ///< set
    BXLONG returnedLength = 0; ///< set
  };
  Codes get(BXHOBJ object, GetRequest& request);

  Codes commit();
  Codes backout();
  /// Commits; the connection serves no other call afterwards.
  Codes disconnect();

  /// Runs body with the session, for commands.
  template <typename Body>
  auto withSession(Body body) {
    const std::lock_guard guard(m_mutex);
    if (!m_session) throw Failure(BXRC_HCONN_ERROR, "the connection has ended");
    return body(*m_session);
  }

private:
  OpenQueue* find(BXHOBJ object);
  Codes commitUnitOfWork();
  Codes getMessage(OpenQueue& queue, GetRequest& request);
  Codes store(OpenQueue& queue, const PutRequest& request, int priority);
  MessageTimes encodeHeader(const BXMD& descriptor, const QueueDefinition& definition);
  Codes storeSingle();
  static Codes codesOf(Committed committed, BXLONG reason);

  std::mutex m_mutex;
  std::unique_ptr<StoreSession> m_session;
  const std::string m_manager; ///< its name
  std::map<BXHOBJ, std::unique_ptr<OpenQueue>> m_queues;
  PutBatch m_puts;   ///< of the unit of work
  PutBatch m_single; ///< of a put outside of it
  std::string m_header;
  MadeId m_lastId;
};

} // namespace bxm
