#include "manager/api/connections.h"
#include "manager/api/guard.h"
#include "manager/engine/names.h"

using namespace bxm;

namespace {

constexpr BXLONG kAccess = BXOO_INPUT_SHARED | BXOO_BROWSE | BXOO_OUTPUT;
constexpr BXLONG kOpenOptions = kAccess | BXOO_FAIL_IF_QUIESCING;

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
