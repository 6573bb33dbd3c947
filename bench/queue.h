#pragma once

#include "bx/bx.h"

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

/// A connection to the default manager with one queue open. Whatever fails ends the program.
class Queue {
public:
  /// options: BXOO_*.
  Queue(const std::string& name, BXLONG options) {
    ::BXCONN("", &m_connection, &m_completion, &m_reason);
    expectDone("BXCONN");
    BXOD descriptor = BXOD_DEFAULT;
    name.copy(descriptor.objectName, BX_NAME_LENGTH);
    ::BXOPEN(m_connection, &descriptor, options, &m_object, &m_completion, &m_reason);
    expectDone("BXOPEN");
  }
  void put(const std::string& record) {
    BXMD descriptor = BXMD_DEFAULT;
    BXPMO options = BXPMO_DEFAULT;
    options.options = BXPMO_SYNCPOINT;
    ::BXPUT(m_connection, m_object, &descriptor, &options, static_cast<BXLONG>(record.size()),
            record.data(), &m_completion, &m_reason);
    expectDone("BXPUT");
  }
  /// A record of so many bytes; none when none came for so many milliseconds.
  std::optional<std::string> get(std::size_t size, BXLONG wait) {
    BXMD descriptor = BXMD_DEFAULT;
    BXGMO options = BXGMO_DEFAULT;
    options.options = BXGMO_SYNCPOINT | (wait > 0 ? BXGMO_WAIT : 0);
    options.waitInterval = wait;
    std::string record(size, ' ');
    BXLONG length = 0;
    ::BXGET(m_connection, m_object, &descriptor, &options, static_cast<BXLONG>(size), record.data(),
            &length, &m_completion, &m_reason);
    if (m_reason == BXRC_NO_MESSAGE_AVAILABLE) return std::nullopt;
    expectDone("BXGET");
    return record;
  }
  void commit() {
    ::BXCMIT(m_connection, &m_completion, &m_reason);
    expectDone("BXCMIT");
  }

private:
  void expectDone(const char* call) const {
    if (m_completion == BXCC_OK) return;
    std::fprintf(stderr, "%s: %d\n", call, m_reason);
    std::exit(1);
  }

  BXHCONN m_connection = BXHC_UNUSABLE;
  BXHOBJ m_object = BXHO_UNUSABLE;
  BXLONG m_completion = BXCC_FAILED, m_reason = BXRC_NONE;
};
