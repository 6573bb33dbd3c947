// The stubs must not be seen by the loaded library: one that calls its own entry points by name
// would otherwise come back here.
#define BXENTRY __attribute__((visibility("hidden")))
#include "ferry/queue/entry_points.h"

constinit CEntryPoints g_obEntryPoints;

extern "C" {

void BXBACK(BXHCONN c, BXLONG* cc, BXLONG* rc) { g_obEntryPoints.BXBACK(c, cc, rc); }

void BXBEGIN(BXHCONN c, BXBO* bo, BXLONG* cc, BXLONG* rc) {
  g_obEntryPoints.BXBEGIN(c, bo, cc, rc);
}

void BXCLOSE(BXHCONN c, BXHOBJ* o, BXLONG opt, BXLONG* cc, BXLONG* rc) {
  g_obEntryPoints.BXCLOSE(c, o, opt, cc, rc);
}

void BXCMIT(BXHCONN c, BXLONG* cc, BXLONG* rc) { g_obEntryPoints.BXCMIT(c, cc, rc); }

void BXCONN(const BXCHAR* name, BXHCONN* c, BXLONG* cc, BXLONG* rc) {
  g_obEntryPoints.BXCONN(name, c, cc, rc);
}

void BXCONNX(const BXCHAR* name, BXCNO* cno, BXHCONN* c, BXLONG* cc, BXLONG* rc) {
  g_obEntryPoints.BXCONNX(name, cno, c, cc, rc);
}

void BXDISC(BXHCONN* c, BXLONG* cc, BXLONG* rc) { g_obEntryPoints.BXDISC(c, cc, rc); }

void BXGET(BXHCONN c, BXHOBJ o, BXMD* md, BXGMO* gmo, BXLONG len, void* buf, BXLONG* dataLen,
           BXLONG* cc, BXLONG* rc) {
  g_obEntryPoints.BXGET(c, o, md, gmo, len, buf, dataLen, cc, rc);
}

void BXOPEN(BXHCONN c, BXOD* od, BXLONG opt, BXHOBJ* o, BXLONG* cc, BXLONG* rc) {
  g_obEntryPoints.BXOPEN(c, od, opt, o, cc, rc);
}

void BXPUT(BXHCONN c, BXHOBJ o, BXMD* md, BXPMO* pmo, BXLONG len, const void* buf, BXLONG* cc,
           BXLONG* rc) {
  g_obEntryPoints.BXPUT(c, o, md, pmo, len, buf, cc, rc);
}

void bxAddInquiry(BXHBAG bag, BXLONG sel, BXLONG* cc, BXLONG* rc) {
  g_obEntryPoints.bxAddInquiry(bag, sel, cc, rc);
}

void bxAddInteger(BXHBAG bag, BXLONG sel, BXLONG value, BXLONG* cc, BXLONG* rc) {
  g_obEntryPoints.bxAddInteger(bag, sel, value, cc, rc);
}

void bxAddString(BXHBAG bag, BXLONG sel, BXLONG len, const BXCHAR* buf, BXLONG* cc, BXLONG* rc) {
  g_obEntryPoints.bxAddString(bag, sel, len, buf, cc, rc);
}

void bxCountItems(BXHBAG bag, BXLONG sel, BXLONG* count, BXLONG* cc, BXLONG* rc) {
  g_obEntryPoints.bxCountItems(bag, sel, count, cc, rc);
}

void bxCreateBag(BXLONG opt, BXHBAG* bag, BXLONG* cc, BXLONG* rc) {
  g_obEntryPoints.bxCreateBag(opt, bag, cc, rc);
}

void bxDeleteBag(BXHBAG* bag, BXLONG* cc, BXLONG* rc) { g_obEntryPoints.bxDeleteBag(bag, cc, rc); }

void bxExecute(BXHCONN c, BXLONG command, BXHBAG opt, BXHBAG commandBag, BXHBAG responseBag,
               BXHOBJ adminQueue, BXHOBJ responseQueue, BXLONG* cc, BXLONG* rc) {
  g_obEntryPoints.bxExecute(c, command, opt, commandBag, responseBag, adminQueue, responseQueue, cc,
                            rc);
}

void bxInquireBag(BXHBAG bag, BXLONG sel, BXLONG index, BXHBAG* nested, BXLONG* cc, BXLONG* rc) {
  g_obEntryPoints.bxInquireBag(bag, sel, index, nested, cc, rc);
}

void bxInquireInteger(BXHBAG bag, BXLONG sel, BXLONG index, BXLONG* value, BXLONG* cc, BXLONG* rc) {
  g_obEntryPoints.bxInquireInteger(bag, sel, index, value, cc, rc);
}

void bxInquireString(BXHBAG bag, BXLONG sel, BXLONG index, BXLONG len, BXCHAR* buf, BXLONG* strLen,
                     BXLONG* charSet, BXLONG* cc, BXLONG* rc) {
  g_obEntryPoints.bxInquireString(bag, sel, index, len, buf, strLen, charSet, cc, rc);
}

void bxTrim(BXLONG len, const BXCHAR* buf, BXCHAR* string, BXLONG* cc, BXLONG* rc) {
  g_obEntryPoints.bxTrim(len, buf, string, cc, rc);
}

} // extern "C"
