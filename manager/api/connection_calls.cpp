#include "manager/api/calls.h"
#include "manager/base/failure.h"
#include "manager/base/names.h"
#include "manager/base/process_local.h"

namespace bxm {

HandleTable<Connection>& connections() { return ProcessLocal<HandleTable<Connection>>::get(); }

namespace {

/// The field ends with its 48th character, unless that belongs to a name: then a zero byte follows,
/// or the name is too long.
std::string nameOf(const BXCHAR* field) {
  const std::string name = unpadded(field, BX_NAME_LENGTH);
  return name.size() < BX_NAME_LENGTH ? name : unpadded(field, BX_NAME_LENGTH + 1);
}

Codes connect(const BXCHAR* name, BXHCONN* connection) {
  if (!connection) return failed(BXRC_HCONN_ERROR);
  const std::string manager = name ? nameOf(name) : "";
  if (!manager.empty() && !isName(manager)) return failed(BXRC_Q_MGR_NAME_ERROR);
  *connection = connections().add(std::make_shared<Connection>(manager));
  return ok();
}

constexpr BXLONG kConnectOptions =
    BXCNO_HANDLE_SHARE_NONE | BXCNO_HANDLE_SHARE_BLOCK | BXCNO_HANDLE_SHARE_NO_BLOCK;

bool isAtMostOne(BXLONG options) { return (options & (options - 1)) == 0; }

} // namespace

} // namespace bxm

using namespace bxm;

void BXCONN(const BXCHAR* name, BXHCONN* connection, BXLONG* completion, BXLONG* reason) {
  if (connection) *connection = BXHC_UNUSABLE;
  guarded("BXCONN", completion, reason, [&] { return connect(name, connection); });
}

void BXCONNX(const BXCHAR* name, BXCNO* options, BXHCONN* connection, BXLONG* completion,
             BXLONG* reason) {
  if (connection) *connection = BXHC_UNUSABLE;
  guarded("BXCONNX", completion, reason, [&] {
    if (options && !isStructure(options, BXCNO_ID, BXCNO_VERSION_4)) return failed(BXRC_CNO_ERROR);
    if (options && ((options->options & ~kConnectOptions) != 0 || !isAtMostOne(options->options)))
      return failed(BXRC_OPTIONS_ERROR);
    return connect(name, connection);
  });
}

void BXDISC(BXHCONN* connection, BXLONG* completion, BXLONG* reason) {
  guarded("BXDISC", completion, reason, [&] {
    const auto ended = connection ? connections().remove(*connection) : nullptr;
    if (!ended) return failed(BXRC_HCONN_ERROR);
    *connection = BXHC_UNUSABLE;
    return ended->disconnect();
  });
}

void BXCMIT(BXHCONN connection, BXLONG* completion, BXLONG* reason) {
  guarded("BXCMIT", completion, reason,
          [&] { return withConnection(connection, [](Connection& c) { return c.commit(); }); });
}

void BXBACK(BXHCONN connection, BXLONG* completion, BXLONG* reason) {
  guarded("BXBACK", completion, reason,
          [&] { return withConnection(connection, [](Connection& c) { return c.backout(); }); });
}

void BXBEGIN(BXHCONN connection, BXBO* options, BXLONG* completion, BXLONG* reason) {
  guarded("BXBEGIN", completion, reason, [&] {
    return withConnection(connection, [&](Connection&) {
      if (options && !isStructure(options, BXBO_ID, BXBO_VERSION_1)) return failed(BXRC_BO_ERROR);
      if (options && options->options != BXBO_NONE) return failed(BXRC_OPTIONS_ERROR);
      return warning(BXRC_NO_EXTERNAL_PARTICIPANTS);
    });
  });
}
