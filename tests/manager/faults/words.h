#pragma once

#include "tests/manager/contract/vocabulary.h"

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// The scenarios' vocabulary in the few words that the fault tests speak, for the programs that are
/// to die: queues and messages by their names.
namespace faults {

using contract::Codes;
using contract::kOk;

/// What is stored for a message's name: the name itself or, for a name that ends in "@n", n bytes
/// that follow from it, so that any change of them is noticed.
std::string contentOf(const std::string& name);
/// The name again; "DAMAGED" when the content is not the name's, with or without the line end that
/// the tool gives it.
std::string nameOf(std::string content);

/// Opens a queue where it is first used. What is open at the end dies with the process.
class Connection {
public:
  ~Connection() { abandon(); }

  Codes connect(const std::string& manager = "");
  Codes disconnect() { return m_connection->disconnect(); }
  Codes commit() { return m_connection->commit(); }
  Codes backout() { return m_connection->backout(); }

  Codes put(const std::string& queue, const std::string& name, const contract::PutHow& how = {});
  Codes get(const std::string& queue, bool syncpoint, BXLONG wait, std::string& name);
  Codes browse(const std::string& queue, std::vector<std::string>& names);

  Codes create(const std::string& queue, BXLONG maxDepth);
  Codes change(const std::string& queue, BXLONG maxDepth);
  Codes remove(const std::string& queue, bool purge);
  Codes depth(const std::string& queue, BXLONG& depth);

private:
  Codes on(const std::string& queue, const std::function<Codes(const contract::Queue&)>& call);
  void abandon();

  std::optional<contract::Connection> m_connection;
  std::map<std::string, contract::Queue> m_opened;
};

} // namespace faults
