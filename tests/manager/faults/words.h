#pragma once

#include "bx/bx.h"

#include <optional>
#include <string>
#include <vector>

/// The entry points in the few words that the fault tests speak, for the programs that are to die.
namespace faults {

struct Codes {
  BXLONG completion = BXCC_OK;
  BXLONG reason = BXRC_NONE;
  bool good() const { return completion == BXCC_OK; }
};

/// What is stored for a message's name: the name itself or, for a name that ends in "@n", n bytes
/// that follow from it, so that any change of them is noticed.
std::string contentOf(const std::string& name);
/// The name again; "DAMAGED" when the content is not the name's, with or without the line end that
/// the tool gives it.
std::string nameOf(std::string content);

class Connection {
public:
  Codes connect(const std::string& manager = "");
  Codes disconnect();
  Codes commit();
  Codes backout();

  struct How {
    bool syncpoint = false;
    BXLONG priority = 0;
    BXLONG expiry = BXEI_UNLIMITED;
  };
  Codes put(const std::string& queue, const std::string& name, const How& how);
  Codes get(const std::string& queue, bool syncpoint, BXLONG wait, std::string& name);
  Codes browse(const std::string& queue, std::vector<std::string>& names);

  Codes create(const std::string& queue, BXLONG maxDepth);
  Codes remove(const std::string& queue, bool purge);
  Codes depth(const std::string& queue, BXLONG& depth);

private:
  struct Opened {
    std::string queue;
    BXHOBJ object;
  };
  Codes open(const std::string& queue, BXHOBJ& object);
  Codes read(const std::string& queue, BXLONG options, BXLONG wait, std::string& name);
  Codes execute(BXLONG command, BXHBAG arguments, BXHBAG answer);

  BXHCONN m_connection = BXHC_UNUSABLE;
  std::vector<Opened> m_opened;
};

} // namespace faults
