#include "manager/api/calls.h"
#include "manager/base/failure.h"
#include "manager/base/names.h"

using namespace bxm;

namespace {

constexpr BXLONG kAccess = BXOO_INPUT_SHARED | BXOO_BROWSE | BXOO_OUTPUT;
constexpr BXLONG kOpenOptions = kAccess | BXOO_FAIL_IF_QUIESCING;
constexpr BXLONG kPutOptions = BXPMO_SYNCPOINT | BXPMO_NO_SYNCPOINT | BXPMO_FAIL_IF_QUIESCING;
constexpr BXLONG kBrowses = BXGMO_BROWSE_FIRST | BXGMO_BROWSE_NEXT;
constexpr BXLONG kGetOptions = BXGMO_WAIT | BXGMO_SYNCPOINT | BXGMO_NO_SYNCPOINT | kBrowses |
                               BXGMO_ACCEPT_TRUNCATED_MESSAGE | BXGMO_MESSAGE_UNDER_CURSOR |
                               BXGMO_FAIL_IF_QUIESCING;
constexpr BXLONG kMatchOptions = BXMO_MATCH_MESSAGE_ID | BXMO_MATCH_CORRELATION_ID;

bool all(BXLONG options, BXLONG both) { return (options & both) == both; }

bool contradict(BXLONG options) {
  return all(options, BXGMO_SYNCPOINT | BXGMO_NO_SYNCPOINT) || all(options, kBrowses) ||
         ((options & kBrowses) != 0 &&
          (options & (BXGMO_SYNCPOINT | BXGMO_MESSAGE_UNDER_CURSOR)) != 0);
}

/// What is wrong with the arguments of both calls; 0 nothing.
BXLONG faultOf(const BXMD* descriptor, BXLONG length, const void* buffer) {
  if (!isStructure(descriptor, BXMD_ID, BXMD_VERSION_2)) return BXRC_MD_ERROR;
  if (length < 0) return BXRC_BUFFER_LENGTH_ERROR;
  if (length > 0 && !buffer) return BXRC_BUFFER_ERROR;
  return BXRC_NONE;
}

Codes get(Connection& connection, BXHOBJ object, BXMD* descriptor, BXGMO* options, BXLONG length,
          void* buffer, BXLONG* dataLength) {
  if (const BXLONG fault = faultOf(descriptor, length, buffer)) return failed(fault);
  if (!isStructure(options, BXGMO_ID, BXGMO_VERSION_3)) return failed(BXRC_GMO_ERROR);
  if (!dataLength) return failed(BXRC_DATA_LENGTH_ERROR);
  if ((options->options & ~kGetOptions) != 0 || contradict(options->options))
    return failed(BXRC_OPTIONS_ERROR);
  const bool waits = (options->options & BXGMO_WAIT) != 0;
  if (waits && options->waitInterval < BXWI_UNLIMITED) return failed(BXRC_WAIT_INTERVAL_ERROR);
  const BXLONG match = options->version >= BXGMO_VERSION_2 ? options->matchOptions : kMatchOptions;
  if ((match & ~kMatchOptions) != 0) return failed(BXRC_OPTIONS_ERROR);
  // A descriptor of version 1 ends before the group identifier: what is behind is not the caller's.
  const bool whole = descriptor->version >= BXMD_VERSION_2;
  BXMD shorter;
  if (!whole) __builtin_memcpy(&shorter, descriptor, offsetof(BXMD, groupId));
  Connection::GetRequest request{whole ? *descriptor : shorter,
                                 options->options,
                                 match,
                                 waits ? options->waitInterval : 0,
                                 static_cast<char*>(buffer),
                                 static_cast<std::size_t>(length),
                                 options->resolvedQueueName};
  const Codes codes = connection.get(object, request);
  *dataLength = request.dataLength;
  if (codes.completion == BXCC_FAILED && codes.reason != BXRC_TRUNCATED_FAILED) return codes;
  if (!whole) __builtin_memcpy(descriptor, &shorter, offsetof(BXMD, groupId));
  if (options->version >= BXGMO_VERSION_3) options->returnedLength = request.returnedLength;
  return codes;
}

} // namespace

void BXOPEN(BXHCONN connection, BXOD* descriptor, BXLONG options, BXHOBJ* object,
            BXLONG* completion, BXLONG* reason) {
  if (object) *object = BXHO_UNUSABLE;
  guarded("BXOPEN", completion, reason, [&] {
    return withConnection(connection, [&](Connection& c) {
      if (!object) return failed(BXRC_HOBJ_ERROR);
      if (!isStructure(descriptor, BXOD_ID, BXOD_VERSION_1)) return failed(BXRC_OD_ERROR);
      if (descriptor->objectType != BXOT_QUEUE) return failed(BXRC_OBJECT_TYPE_ERROR);
      if ((options & ~kOpenOptions) != 0 || (options & kAccess) == 0)
        return failed(BXRC_OPTIONS_ERROR);
      return c.open(unpadded(descriptor->objectName, BX_NAME_LENGTH),
                    unpadded(descriptor->managerName, BX_NAME_LENGTH), options, *object);
    });
  });
}

void BXCLOSE(BXHCONN connection, BXHOBJ* object, BXLONG options, BXLONG* completion,
             BXLONG* reason) {
  guarded("BXCLOSE", completion, reason, [&] {
    return withConnection(connection, [&](Connection& c) {
      if (!object) return failed(BXRC_HOBJ_ERROR);
      if (options != BXCO_NONE) return failed(BXRC_OPTIONS_ERROR);
      const Codes codes = c.close(*object);
      if (codes.completion == BXCC_OK) *object = BXHO_UNUSABLE;
      return codes;
    });
  });
}

void BXPUT(BXHCONN connection, BXHOBJ object, BXMD* descriptor, BXPMO* options, BXLONG length,
           const void* buffer, BXLONG* completion, BXLONG* reason) {
  guarded("BXPUT", completion, reason, [&] {
    return withConnection(connection, [&](Connection& c) {
      if (const BXLONG fault = faultOf(descriptor, length, buffer)) return failed(fault);
      if (!isStructure(options, BXPMO_ID, BXPMO_VERSION_1)) return failed(BXRC_PMO_ERROR);
      if ((options->options & ~kPutOptions) != 0 ||
          all(options->options, BXPMO_SYNCPOINT | BXPMO_NO_SYNCPOINT))
        return failed(BXRC_OPTIONS_ERROR);
      const std::string_view data(static_cast<const char*>(buffer),
                                  static_cast<std::size_t>(length));
      return c.put(object, {*descriptor, *options, data});
    });
  });
}

void BXGET(BXHCONN connection, BXHOBJ object, BXMD* descriptor, BXGMO* options, BXLONG length,
           void* buffer, BXLONG* dataLength, BXLONG* completion, BXLONG* reason) {
  guarded("BXGET", completion, reason, [&] {
    return withConnection(connection, [&](Connection& c) {
      return get(c, object, descriptor, options, length, buffer, dataLength);
    });
  });
}
