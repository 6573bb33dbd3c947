// browse.cpp - shows what is on a queue and leaves it there.
//
//     c++ -std=c++17 browse.cpp $(pkg-config --cflags --libs bxm) -o browse
//     ./browse JOBS
//
// Shows: browsing from the first message to the last, in the order in which they will be got; what
// the descriptor tells of a message; a connection that ends with its scope.
#include <bx/bx.h>

#include <algorithm>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

void check(const char* call, BXLONG completion, BXLONG reason) {
  if (completion == BXCC_FAILED)
    throw std::runtime_error(std::string(call) + " failed with reason " + std::to_string(reason));
}

class Connection {
public:
  Connection() {
    BXLONG completion, reason;
    BXCONN("", &m_handle, &completion, &reason);
    check("BXCONN", completion, reason);
  }
  ~Connection() {
    BXLONG completion, reason;
    BXDISC(&m_handle, &completion, &reason);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  BXHOBJ open(const std::string& name, BXLONG options) const {
    BXOD object = BXOD_DEFAULT;
    name.copy(object.objectName, BX_NAME_LENGTH); // over blanks
    BXHOBJ queue;
    BXLONG completion, reason;
    BXOPEN(m_handle, &object, options, &queue, &completion, &reason);
    check("BXOPEN", completion, reason);
    return queue;
  }
  BXHCONN handle() const { return m_handle; }

private:
  BXHCONN m_handle;
};

// The next message's beginning, as much as the buffer holds; false behind the last one.
bool browse(const Connection& connection, BXHOBJ queue, BXMD& descriptor, std::vector<char>& buffer,
            BXLONG& length) {
  descriptor = BXMD_DEFAULT;
  BXGMO options = BXGMO_DEFAULT;
  options.options = BXGMO_BROWSE_NEXT + BXGMO_ACCEPT_TRUNCATED_MESSAGE;
  BXLONG completion, reason;
  BXGET(connection.handle(), queue, &descriptor, &options, static_cast<BXLONG>(buffer.size()),
        buffer.data(), &length, &completion, &reason);
  if (reason == BXRC_NO_MESSAGE_AVAILABLE) return false;
  check("BXGET", completion, reason); // 2079, a warning: there is more of it than we show
  return true;
}

void show(const std::string& name) {
  const Connection connection;
  const BXHOBJ queue = connection.open(name, BXOO_BROWSE);
  BXMD descriptor;
  std::vector<char> buffer(60);
  BXLONG length = 0;
  while (browse(connection, queue, descriptor, buffer, length)) {
    const auto shown = std::min(static_cast<std::size_t>(length), buffer.size());
    std::cout << "priority " << descriptor.priority << ", " << length << " bytes, put on "
              << std::string(descriptor.putDate, sizeof descriptor.putDate) << ": "
              << std::string(buffer.data(), shown) << '\n';
  }
}

} // namespace

int main(int count, char** arguments) {
  if (count != 2) {
    std::cerr << "usage: " << arguments[0] << " QUEUE\n";
    return 2;
  }
  try {
    show(arguments[1]);
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
}
