// forward.cpp - a unit of work over two queues.
//
//     c++ -std=c++17 forward.cpp $(pkg-config --cflags --libs bxm) -o forward
//     ./forward ORDERS INVOICES
//
// Takes each message off the first queue and puts an answer to it on the second. Either both count
// or neither does, whenever the program or the machine dies: no order gets lost, none is invoiced
// twice. Shows: BXGMO_SYNCPOINT and BXPMO_SYNCPOINT, BXCMIT and BXBACK, a correlation identifier
// that says which message is answered, and what to make of an outcome that is not known.
#include <bx/bx.h>

#include <cstring>
#include <iostream>
#include <stdexcept>
#include <string>

namespace {

struct Failure : std::runtime_error {
  Failure(const char* call, BXLONG code)
      : runtime_error(std::string(call) + " failed with reason " + std::to_string(code)),
        reason(code) {}
  BXLONG reason;
};

BXHOBJ open(BXHCONN connection, const std::string& name, BXLONG options) {
  BXOD object = BXOD_DEFAULT;
  name.copy(object.objectName, BX_NAME_LENGTH); // over blanks
  BXHOBJ queue;
  BXLONG completion, reason;
  BXOPEN(connection, &object, options, &queue, &completion, &reason);
  if (completion == BXCC_FAILED) throw Failure("BXOPEN", reason);
  return queue;
}

bool get(BXHCONN connection, BXHOBJ queue, BXMD& descriptor, std::string& text) {
  BXGMO options = BXGMO_DEFAULT;
  options.options = BXGMO_SYNCPOINT;
  text.resize(4096);
  BXLONG length, completion, reason;
  do {
    descriptor = BXMD_DEFAULT;
    BXGET(connection, queue, &descriptor, &options, static_cast<BXLONG>(text.size()), text.data(),
          &length, &completion, &reason);
    if (reason == BXRC_NO_MESSAGE_AVAILABLE) return false;
    if (completion == BXCC_FAILED && reason != BXRC_TRUNCATED_FAILED)
      throw Failure("BXGET", reason);
    text.resize(static_cast<std::size_t>(length)); // what it has, or what it needs
  } while (completion == BXCC_FAILED);
  return true;
}

void put(BXHCONN connection, BXHOBJ queue, const BXMD& answered, const std::string& text) {
  BXMD descriptor = BXMD_DEFAULT;
  std::memcpy(descriptor.format, BXFMT_STRING, sizeof descriptor.format);
  std::memcpy(descriptor.correlationId, answered.messageId, sizeof answered.messageId);
  BXPMO options = BXPMO_DEFAULT;
  options.options = BXPMO_SYNCPOINT;
  BXLONG completion, reason;
  BXPUT(connection, queue, &descriptor, &options, static_cast<BXLONG>(text.size()), text.data(),
        &completion, &reason);
  if (completion == BXCC_FAILED) throw Failure("BXPUT", reason);
}

void commit(BXHCONN connection) {
  BXLONG completion, reason;
  BXCMIT(connection, &completion, &reason);
  if (completion == BXCC_FAILED) throw Failure("BXCMIT", reason);
}

int forwardAll(BXHCONN connection, const char* from, const char* to) {
  const BXHOBJ orders = open(connection, from, BXOO_INPUT_SHARED);
  const BXHOBJ invoices = open(connection, to, BXOO_OUTPUT);
  BXMD descriptor;
  std::string order;
  int count = 0;
  for (; get(connection, orders, descriptor, order); ++count) {
    put(connection, invoices, descriptor, "invoice for " + order);
    commit(connection);
  }
  return count;
}

} // namespace

int main(int count, char** arguments) {
  if (count != 3) {
    std::cerr << "usage: " << arguments[0] << " FROM TO\n";
    return 2;
  }
  BXHCONN connection;
  BXLONG completion, reason;
  int status = 0;
  try {
    BXCONN("", &connection, &completion, &reason);
    if (completion == BXCC_FAILED) throw Failure("BXCONN", reason);
    std::cout << forwardAll(connection, arguments[1], arguments[2]) << " forwarded\n";
  } catch (const Failure& failure) {
    std::cerr << failure.what() << '\n';
    if (failure.reason == BXRC_OUTCOME_UNKNOWN)
      std::cerr << "The last one was forwarded as a whole or not at all: look at the queues.\n";
    BXBACK(connection, &completion, &reason); // else the disconnect would commit what is pending
    status = 1;
  }
  BXDISC(&connection, &completion, &reason);
  return status;
}
