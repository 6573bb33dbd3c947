#include "tests/manager/contract/fixture.h"

namespace contract {

namespace {

/// What a call is given: right, but for what a case spoils.
struct Given {
  BXMD md = BXMD_DEFAULT;
  BXOD od = BXOD_DEFAULT;
  BXGMO gmo = BXGMO_DEFAULT;
  BXPMO pmo = BXPMO_DEFAULT;
  BXCNO cno = BXCNO_DEFAULT;
  BXBO bo = BXBO_DEFAULT;
  BXLONG options = 0; ///< of the calls without a structure for them
  BXLONG size = 1;
  char text[1] = {'x'};
  void* buffer = text;
  BXLONG made = 0;
  BXLONG* place = &made; ///< of a result
};

} // namespace

class Arguments : public OnQueue {
public:
  Codes codes;
  BXLONG *cc = &codes.completion, *rc = &codes.reason;

  void connect(Given& g) {
    api.BXCONNX("", &g.cno, g.place, cc, rc);
    Codes end;
    if (codes == kOk) api.BXDISC(g.place, &end.completion, &end.reason);
  }
  void disconnect(Given& g) { api.BXDISC(g.place, cc, rc); }
  void begin(Given& g) { api.BXBEGIN(mine.handle, &g.bo, cc, rc); }
  void open(Given& g) {
    g.od.objectName[0] = 'Q';
    api.BXOPEN(mine.handle, &g.od, g.options, g.place, cc, rc);
  }
  void close(Given& g) {
    api.BXCLOSE(mine.handle, g.place ? &q.object : nullptr, g.options, cc, rc);
  }
  void put(Given& g) { api.BXPUT(mine.handle, q.object, &g.md, &g.pmo, g.size, g.buffer, cc, rc); }
  void get(Given& g) {
    api.BXGET(mine.handle, q.object, &g.md, &g.gmo, g.size, g.buffer, g.place, cc, rc);
  }
  void createBag(Given& g) { api.bxCreateBag(g.options, g.place, cc, rc); }
  void deleteBag(Given& g) { api.bxDeleteBag(g.place, cc, rc); }
  void count(Given& g) { api.bxCountItems(BXHB_NONE, 1, g.place, cc, rc); }
  void integer(Given& g) { api.bxInquireInteger(BXHB_NONE, 1, 0, g.place, cc, rc); }

  struct Case {
    BXLONG reason;
    void (Arguments::*call)(Given&);
    void (*spoil)(Given&);
  };
  static const std::vector<Case> kRefused;
  Codes codesOf(void (Arguments::*call)(Given&), void (*change)(Given&)) {
    Given given;
    change(given);
    (this->*call)(given);
    return codes;
  }
};
FOR_EVERY_BINDING(Arguments);

using A = Arguments;
#define WITH(change) [](Given& g) { change; }
const std::vector<A::Case> A::kRefused = {
    {BXRC_CNO_ERROR, &A::connect, WITH(g.cno.structId[0] = 'X')},
    {BXRC_CNO_ERROR, &A::connect, WITH(g.cno.version = BXCNO_VERSION_4 + 1)},
    {BXRC_OPTIONS_ERROR, &A::connect, WITH(g.cno.options = 1 << 20)},
    {BXRC_OPTIONS_ERROR, &A::connect,
     WITH(g.cno.options = BXCNO_HANDLE_SHARE_NONE | BXCNO_HANDLE_SHARE_BLOCK)},
    {BXRC_HCONN_ERROR, &A::connect, WITH(g.place = nullptr)},
    {BXRC_HCONN_ERROR, &A::disconnect, WITH(g.place = nullptr)},
    {BXRC_BO_ERROR, &A::begin, WITH(g.bo.structId[0] = ' ')},
    {BXRC_OPTIONS_ERROR, &A::begin, WITH(g.bo.options = 1)},
    {BXRC_OPTIONS_ERROR, &A::open, WITH(g.options = 0)},
    {BXRC_OPTIONS_ERROR, &A::open, WITH(g.options = BXOO_OUTPUT | 1)},
    {BXRC_HOBJ_ERROR, &A::open, WITH(g.options = BXOO_BROWSE; g.place = nullptr)},
    {BXRC_OPTIONS_ERROR, &A::close, WITH(g.options = 1)},
    {BXRC_HOBJ_ERROR, &A::close, WITH(g.place = nullptr)},

    {BXRC_MD_ERROR, &A::put, WITH(g.md.version = 3)},
    {BXRC_PERSISTENCE_ERROR, &A::put, WITH(g.md.persistence = 3)},
    {BXRC_PRIORITY_ERROR, &A::put, WITH(g.md.priority = -2)},
    {BXRC_EXPIRY_ERROR, &A::put, WITH(g.md.expiry = 0)},
    {BXRC_EXPIRY_ERROR, &A::put, WITH(g.md.expiry = -2)},
    {BXRC_PMO_ERROR, &A::put, WITH(g.pmo.structId[3] = 'x')},
    {BXRC_OPTIONS_ERROR, &A::put, WITH(g.pmo.options = 1)},
    {BXRC_OPTIONS_ERROR, &A::put, WITH(g.pmo.options = BXPMO_SYNCPOINT | BXPMO_NO_SYNCPOINT)},
    {BXRC_BUFFER_LENGTH_ERROR, &A::put, WITH(g.size = -1)},
    {BXRC_BUFFER_ERROR, &A::put, WITH(g.buffer = nullptr)},

    {BXRC_MD_ERROR, &A::get, WITH(g.md.version = 0)},
    {BXRC_GMO_ERROR, &A::get, WITH(g.gmo.version = 4)},
    {BXRC_OPTIONS_ERROR, &A::get, WITH(g.gmo.options = 8)},
    {BXRC_OPTIONS_ERROR, &A::get, WITH(g.gmo.options = BXGMO_SYNCPOINT | BXGMO_NO_SYNCPOINT)},
    {BXRC_OPTIONS_ERROR, &A::get, WITH(g.gmo.options = BXGMO_BROWSE_FIRST | BXGMO_BROWSE_NEXT)},
    {BXRC_OPTIONS_ERROR, &A::get, WITH(g.gmo.options = BXGMO_BROWSE_FIRST | BXGMO_SYNCPOINT)},
    {BXRC_OPTIONS_ERROR, &A::get,
     WITH(g.gmo.options = BXGMO_BROWSE_NEXT | BXGMO_MESSAGE_UNDER_CURSOR)},
    {BXRC_OPTIONS_ERROR, &A::get, WITH(g.gmo.version = BXGMO_VERSION_2; g.gmo.matchOptions = 4)},
    {BXRC_WAIT_INTERVAL_ERROR, &A::get, WITH(g.gmo.options = BXGMO_WAIT; g.gmo.waitInterval = -2)},
    {BXRC_BUFFER_LENGTH_ERROR, &A::get, WITH(g.size = -1)},
    {BXRC_BUFFER_ERROR, &A::get, WITH(g.buffer = nullptr)},
    {BXRC_DATA_LENGTH_ERROR, &A::get, WITH(g.place = nullptr)},

    {BXRC_OPTIONS_ERROR, &A::createBag, WITH(g.options = 2)},
    {BXRC_HOBJ_ERROR, &A::createBag, WITH(g.options = BXCBO_ADMIN_BAG; g.place = nullptr)},
    {BXRC_HOBJ_ERROR, &A::deleteBag, WITH(g.place = nullptr)},
    {BXRC_BUFFER_ERROR, &A::count, WITH(g.place = nullptr)},
    {BXRC_BUFFER_ERROR, &A::integer, WITH(g.place = nullptr)},
};

TEST_P(Arguments, ThatAreWrongAreRefusedAndDoNothing) {
  ASSERT_EQ(q.put("x"), kOk);
  for (const Case& each : kRefused)
    EXPECT_EQ(codesOf(each.call, each.spoil), failed(each.reason))
        << "no. " << &each - &kRefused[0];
  EXPECT_EQ(q.drain().size(), 1U);
}

TEST_P(Arguments, ThatOnlyLookWrongAreAccepted) {
  EXPECT_EQ(codesOf(&A::begin, WITH(g.size = 0)), warning(BXRC_NO_EXTERNAL_PARTICIPANTS));
  EXPECT_EQ(codesOf(&A::connect, WITH(g.cno.version = BXCNO_VERSION_4;
                                      g.cno.options = BXCNO_HANDLE_SHARE_NO_BLOCK)),
            kOk);
  Given nothing;
  nothing.size = 0;
  nothing.buffer = nullptr;
  put(nothing);
  EXPECT_EQ(codes, kOk);
  EXPECT_EQ(std::string(nothing.pmo.resolvedQueueName, 48), 'Q' + std::string(47, ' '));
  EXPECT_EQ(std::string(nothing.pmo.resolvedManagerName, 48), "DEFAULT" + std::string(41, ' '));
  EXPECT_EQ(
      codesOf(&A::get, WITH(g.gmo.options = BXGMO_FAIL_IF_QUIESCING; g.gmo.waitInterval = -2)), kOk)
      << "without the wait option the interval is nothing";
}
#undef WITH

} // namespace contract
