/*
 * bx.h - the C interface of the queue manager.
 *
 * A queue manager keeps named queues of messages that survive the programs that use them. A
 * program connects to a manager, opens queues, puts and gets messages, and groups puts and gets
 * into units of work that count as a whole or not at all. Queues are created, deleted and
 * inquired by administration commands, whose arguments and answers travel in bags.
 *
 * The library comes in two bindings with the same entry points: libbxm_r.so embeds the manager
 * (it lives in a folder, there is no daemon), libbxic_r.so reaches one in a database server.
 *
 * CONVENTIONS. What is said here holds everywhere; a declaration below states exceptions only.
 *
 *  1. Results. Every call writes *reason first and *completion last, and nothing is ever thrown.
 *     The completion code is BXCC_OK (0), BXCC_WARNING (1: done, with a remark) or BXCC_FAILED
 *     (2: not done). The reason is BXRC_NONE (0) when the completion code is BXCC_OK. Both
 *     pointers must be valid; they may be the same, which then holds the completion code.
 *  2. Handles are 32-bit numbers of this process; 0 and -1 never name anything. A call that ends
 *     a handle takes its address and sets it to an unusable value. A handle that was never given
 *     out, or has ended, is BXRC_HCONN_ERROR (2018) or BXRC_HOBJ_ERROR (2019); so is a null
 *     pointer in place of a handle's address.
 *  3. Names are at most 48 characters from A-Z a-z 0-9 . _ / %, case-sensitive, padded with
 *     blanks or ended by a zero byte. Any other name is simply unknown.
 *  4. Lengths are in bytes. Buffers belong to the caller and are not kept after the call; a
 *     length of 0 allows a null buffer. A null pointer for a count or a value that a call is to
 *     return is BXRC_BUFFER_ERROR (2004).
 *  5. Structures start with a four-character identifier and a version. Start from the *_DEFAULT
 *     initialisers; a wrong identifier or version is refused with the structure's own reason.
 *     Fields named reserved are zero or blank. Calls return values in the structures that they are
 *     given: threads do not share one.
 *  6. Options are sums of the constants of their group. An unknown one, or two that contradict
 *     each other, is BXRC_OPTIONS_ERROR (2046).
 *  7. Threads. Any thread may use any handle. Calls on one connection run one after the other, a
 *     get that waits included; use a connection for each thread that is to wait by itself. No call
 *     is made from a signal handler, and no thread cancelled within one.
 *  8. Processes. Handles do not survive fork(): a child connects anew. A process that dies
 *     without BXDISC has its unit of work backed out; nobody else is harmed.
 *  9. Reasons that any call on a connection may give, beside those listed with it:
 *     BXRC_CONNECTION_BROKEN (2009: the store went away; the unit of work is backed out; connect
 *     again),
 *     BXRC_OUTCOME_UNKNOWN (2124: the store went away in the middle of a commit, and nobody here
 *     can know whether that happened, as a whole or not at all; given by BXCMIT, BXDISC, and BXPUT
 *     and BXGET without syncpoint; connect again and look before anything is repeated: what was
 *     put may be there already, what was got may be gone for good),
 *     BXRC_STORAGE_FULL (2056: no disk space; free some and try again),
 *     BXRC_OBJECT_DAMAGED (2101: the store is not readable; restore it from a backup),
 *     BXRC_RESOURCE_PROBLEM (2102: memory, descriptors or table slots ran out),
 *     BXRC_UNEXPECTED (2195: anything else, with a line on standard error).
 * 10. Limits of one embedded manager, all processes together: 4,096 connections (a further one is
 *     2025), 8,192 open queues and 16,384 queues (2102). What one connection has open several times
 *     counts once.
 * 11. Place. An embedded manager's folder belongs on a local file system of one machine. Its
 *     processes agree by file locks and shared memory, which most network file systems do not
 *     keep: there messages are lost or got twice, the store is damaged, and no call notices.
 *
 * EXAMPLE. Gets a message of the queue JOBS, waiting a minute for it at the most, and takes it away
 * only when it has been worked off. Whoever dies over it leaves it to the next one.
 *
 *     BXOD name = BXOD_DEFAULT;
 *     BXMD descriptor = BXMD_DEFAULT;
 *     BXGMO how = BXGMO_DEFAULT;
 *     BXHCONN connection;
 *     BXHOBJ queue;
 *     BXLONG completion, reason, length;
 *     char text[4096];
 *
 *     BXCONN("", &connection, &completion, &reason);
 *     if (completion == BXCC_FAILED) return reason;
 *     memcpy(name.objectName, "JOBS", 4);
 *     BXOPEN(connection, &name, BXOO_INPUT_SHARED, &queue, &completion, &reason);
 *     how.options = BXGMO_WAIT + BXGMO_SYNCPOINT;
 *     how.waitInterval = 60000;
 *     BXGET(connection, queue, &descriptor, &how, sizeof text, text, &length, &completion,
 *           &reason);
 *     if (completion == BXCC_OK && work(text, length))
 *       BXCMIT(connection, &completion, &reason);
 *     else
 *       BXBACK(connection, &completion, &reason);
 *     BXDISC(&connection, &completion, &reason);
 */
#ifndef BX_BX_H
#define BX_BX_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The version of this header, and of the libraries and programs that it comes with. */
#define BX_VERSION_MAJOR 0
#define BX_VERSION_MINOR 1
#define BX_VERSION_PATCH 0

/* A program that defines the entry points itself, forwarding to a library that it loads at run
 * time, sets BXENTRY beforehand to keep them out of that library's way. */
#if !defined(BXENTRY)
#if defined(__GNUC__)
#define BXENTRY __attribute__((visibility("default")))
#else
#define BXENTRY
#endif
#endif

/* ---- Types ------------------------------------------------------------------------------- */

typedef char BXCHAR;
typedef unsigned char BXBYTE;
typedef int32_t BXLONG;
typedef BXLONG BXHCONN; /* a connection to a manager */
typedef BXLONG BXHOBJ;  /* a queue opened on a connection */
typedef BXLONG BXHBAG;  /* an administration bag */

#define BX_NAME_LENGTH 48       /* a queue's or manager's name */
#define BX_IDENTIFIER_LENGTH 24 /* a message or correlation identifier */
#define BX_FORMAT_LENGTH 8      /* a message format's name */
#define BX_DATE_LENGTH 12       /* "YYYY-MM-DD  ", local time */
#define BX_TIME_LENGTH 8        /* "HH.MM.SS", local time */

#define BXHC_UNUSABLE (-1)
#define BXHO_UNUSABLE (-1)
#define BXHB_UNUSABLE (-1)
#define BXHB_NONE (-2) /* "no bag" where a bag is optional */
#define BXHO_NONE 0    /* "the default" where a queue is optional */

/* ---- Completion and reason codes ------------------------------------------------------------ */

/* How a call ended: *completion. */
#define BXCC_OK 0      /* done; the reason is BXRC_NONE */
#define BXCC_WARNING 1 /* done, and the reason is worth a look */
#define BXCC_FAILED 2  /* not done, unless the reason says otherwise (2124) */

/*
 * Why: *reason. Behind each number stand what it says, the calls that give it and what helps;
 * "any" are all calls with a connection handle. Numbers are never given another meaning.
 */
#define BXRC_NONE 0

/* BXCMIT, BXDISC: the unit of work was backed out instead of committed, all of it. Do it again. */
#define BXRC_BACKED_OUT 2003
/* Any with a buffer: null, with a length above 0; null for a value to return. */
#define BXRC_BUFFER_ERROR 2004
/* Any with a buffer: a negative length. */
#define BXRC_BUFFER_LENGTH_ERROR 2005
/* bxInquireString, a warning: the string was cut; *stringLength tells its true length. */
#define BXRC_CHAR_ATTRS_TOO_SHORT 2008
/* Any: the store went away and the unit of work was backed out. Connect again. */
#define BXRC_CONNECTION_BROKEN 2009
/* BXGET: a null pointer for the message's length. */
#define BXRC_DATA_LENGTH_ERROR 2010
/* BXPUT: an expiry that is neither -1 nor above 0. */
#define BXRC_EXPIRY_ERROR 2013
/* BXGET: gets and browses of the queue are inhibited (bxadm queue alter). */
#define BXRC_GET_INHIBITED 2016
/* Any: no connection of this process, or one that has ended. */
#define BXRC_HCONN_ERROR 2018
/* Any: no queue or bag of this process, or one that has been closed. */
#define BXRC_HOBJ_ERROR 2019
/* bxExecute, in the answer: an integer out of its range. */
#define BXRC_INT_ATTRS_ERROR 2023
/* BXCONN: 4,096 connections use the manager. End some. */
#define BXRC_MAX_CONNECTIONS 2025
/* BXPUT, BXGET: no BXMD, or one of an unknown version. */
#define BXRC_MD_ERROR 2026
/* BXPUT: longer than BXIA_MAX_MESSAGE_LENGTH of the queue. */
#define BXRC_MESSAGE_TOO_BIG_FOR_Q 2030
/* BXPUT: longer than any queue takes, 100 MiB. */
#define BXRC_MESSAGE_TOO_BIG_FOR_Q_MGR 2031
/* BXGET: nothing there, or nothing within the wait. For most programs an ordinary outcome. */
#define BXRC_NO_MESSAGE_AVAILABLE 2033
/* BXGET: nothing was browsed yet, or somebody took it meanwhile. Browse on. */
#define BXRC_NO_MESSAGE_UNDER_CURSOR 2034
/* BXCONN: no permission on the manager's folder. Any: none on a file in it. */
#define BXRC_NOT_AUTHORIZED 2035
/* BXGET, BXPUT: the queue was opened for something else. Open it with BXOO_*. */
#define BXRC_NOT_OPEN_FOR_BROWSE 2036
#define BXRC_NOT_OPEN_FOR_INPUT 2037
#define BXRC_NOT_OPEN_FOR_OUTPUT 2039
/* Of no call: a manager in use is not deleted, repaired or restored (bxadm). */
#define BXRC_OBJECT_IN_USE 2042
/* BXOPEN: a BXOD of something that is no queue. */
#define BXRC_OBJECT_TYPE_ERROR 2043
/* BXOPEN: no BXOD, or one of an unknown version. */
#define BXRC_OD_ERROR 2044
/* bxExecute: an argument that must be BXHB_NONE or BXHO_NONE. */
#define BXRC_OPTION_NOT_VALID_FOR_TYPE 2045
/* Any with options: an unknown one, or two that contradict each other. */
#define BXRC_OPTIONS_ERROR 2046
/* BXPUT: no BXPER_*. */
#define BXRC_PERSISTENCE_ERROR 2047
/* BXPUT, a warning: the priority was above 9, and the message was put at 9. */
#define BXRC_PRIORITY_EXCEEDS_MAXIMUM 2049
/* BXPUT: a priority below -1. */
#define BXRC_PRIORITY_ERROR 2050
/* BXPUT: puts to the queue are inhibited (bxadm queue alter). */
#define BXRC_PUT_INHIBITED 2051
/* BXPUT, BXGET: the queue has been deleted since it was opened. Close it. */
#define BXRC_Q_DELETED 2052
/* BXPUT: BXIA_MAX_DEPTH is reached, uncommitted messages counted. Wait until some are got. */
#define BXRC_Q_FULL 2053
/* bxExecute, in the answer: a deletion without BXPO_YES. */
#define BXRC_Q_NOT_EMPTY 2055
/* Any: no disk space. Free some and do it again; getting messages frees some, too. */
#define BXRC_STORAGE_FULL 2056
/* bxExecute, in the answer: a queue type that is not BXQT_LOCAL. */
#define BXRC_Q_TYPE_ERROR 2057
/* BXCONN: no manager of that name; bxadm manager list shows those there are. */
#define BXRC_Q_MGR_NAME_ERROR 2058
/* BXCONN: the manager cannot be opened; a line on standard error says why. */
#define BXRC_Q_MGR_NOT_AVAILABLE 2059
/* bxInquire*: the bag has the selector, and no item of that index. */
#define BXRC_SELECTOR_COUNT_ERROR 2065
/* bxInquire*: no item has the selector. bxExecute, in the answer: it is missing, or not known. */
#define BXRC_SELECTOR_ERROR 2067
/* bxInquire*, and bxExecute in the answer: the item is of another type. */
#define BXRC_SELECTOR_TYPE_ERROR 2068
/* BXGET, a warning: the message was longer than the buffer, and was taken. */
#define BXRC_TRUNCATED_ACCEPTED 2079
/* BXGET: the message is longer than the buffer, and stays. Get again with *dataLength bytes. */
#define BXRC_TRUNCATED_FAILED 2080
/* BXOPEN, and bxExecute in the answer: no queue of that name. */
#define BXRC_UNKNOWN_OBJECT 2085
/* BXOPEN: a queue of another manager than the connected one. */
#define BXRC_UNKNOWN_OBJECT_Q_MGR 2086
/* BXGET: a wait below -1. */
#define BXRC_WAIT_INTERVAL_ERROR 2090
/* bxExecute, in the answer: there is a queue of that name. */
#define BXRC_OBJECT_EXISTS 2100
/* Any: the store is damaged. bxadm check tells where, repair saves the rest. */
#define BXRC_OBJECT_DAMAGED 2101
/* Any: memory, descriptors or table slots ran out (convention 10). */
#define BXRC_RESOURCE_PROBLEM 2102
/* BXBEGIN, a warning: the unit of work is the connection's own. */
#define BXRC_NO_EXTERNAL_PARTICIPANTS 2121
/* BXCMIT, BXDISC, BXPUT, BXGET: it may count or not (convention 9). Look before doing it again. */
#define BXRC_OUTCOME_UNKNOWN 2124
/* BXBEGIN, BXCONNX, BXPUT, BXGET: no options structure, or one of an unknown version. */
#define BXRC_BO_ERROR 2134
#define BXRC_CNO_ERROR 2139
#define BXRC_PMO_ERROR 2173
#define BXRC_GMO_ERROR 2186
/* Any: something else; a line on standard error says what. */
#define BXRC_UNEXPECTED 2195
/* bxExecute: the command server is stopped; strbxcsv starts it. */
#define BXRC_COMMAND_SERVER_NOT_AVAILABLE 2322
/* bxExecute: the command was refused; the answer's nested bag holds its own codes. */
#define BXRC_COMMAND_FAILED 3008

/* ---- BXMD, the message descriptor: 364 bytes ------------------------------------------------ */

#define BXMD_ID "MD  "
#define BXMD_VERSION_1 1
#define BXMD_VERSION_2 2 /* the fields from groupId on are used */

#define BXMT_DATAGRAM 8
#define BXEI_UNLIMITED (-1)
#define BXENC_NATIVE 546
#define BXCS_Q_MGR 0     /* the manager's character set ... */
#define BXCS_UTF8 1208   /* ... which a get tells as this number */
#define BXPRI_AS_Q_DEF (-1)
#define BXPRI_MAXIMUM 9
#define BXPER_NOT_PERSISTENT 0
#define BXPER_PERSISTENT 1
#define BXPER_AS_Q_DEF 2
#define BXFMT_NONE "        "
#define BXFMT_STRING "BXSTR   "

/*
 * What is known of a message beside its data. A put stores it, a get returns it. What has no
 * comment here is the programs' own affair: it is kept with the message and told as it was put,
 * and the manager makes nothing of it.
 */
typedef struct tagBXMD {
  BXCHAR structId[4]; /* BXMD_ID */
  BXLONG version;     /* of version 1 nothing from groupId on is read or written */
  BXLONG report;
  BXLONG messageType;
  BXLONG expiry; /* tenths of a second, above 0; -1 never; a get tells what is left */
  BXLONG feedback;
  BXLONG encoding;     /* of numbers in the data; nothing is converted */
  BXLONG characterSet; /* of the data; nothing is converted */
  BXCHAR format[BX_FORMAT_LENGTH]; /* of the data: BXFMT_*, or any other */
  BXLONG priority;    /* 0 to 9, highest first; -1 the queue's default */
  BXLONG persistence; /* kept and told; every message is stored durably */
  BXBYTE messageId[BX_IDENTIFIER_LENGTH]; /* zero: made by the put, which returns it here */
  BXBYTE correlationId[BX_IDENTIFIER_LENGTH]; /* names another message, for gets that match it */
  BXLONG backoutCount; /* always 0 */
  BXCHAR replyToQueue[BX_NAME_LENGTH]; /* blank-padded, like all texts here */
  BXCHAR replyToManager[BX_NAME_LENGTH];
  BXCHAR userId[12];
  BXBYTE accountingToken[32];
  BXCHAR applicationIdentity[32];
  BXLONG putApplicationType;
  BXCHAR putApplicationName[28];
  BXCHAR putDate[8]; /* "YYYYMMDD", UTC, set by the put */
  BXCHAR putTime[8]; /* "HHMMSSTH", UTC, hundredths of a second */
  BXCHAR applicationOrigin[4];
  /* version 2 */
  BXBYTE groupId[BX_IDENTIFIER_LENGTH];
  BXLONG sequenceNumber;
  BXLONG offset;
  BXLONG messageFlags;
  BXLONG originalLength;
} BXMD;

/* ---- BXOD, the object descriptor ------------------------------------------------------------ */

#define BXOD_ID "OD  "
#define BXOD_VERSION_1 1
#define BXOT_QUEUE 1

/* Which queue to open. Only read. */
typedef struct tagBXOD {
  BXCHAR structId[4]; /* BXOD_ID */
  BXLONG version;     /* BXOD_VERSION_1 */
  BXLONG objectType;  /* BXOT_QUEUE */
  BXCHAR objectName[BX_NAME_LENGTH];  /* the queue's */
  BXCHAR managerName[BX_NAME_LENGTH]; /* blank, or the connected manager's */
} BXOD;

/* ---- BXGMO, the get options: 100 bytes ------------------------------------------------------ */

#define BXGMO_ID "GMO "
#define BXGMO_VERSION_1 1
#define BXGMO_VERSION_2 2 /* matchOptions is used; version 1 always matches both identifiers */
#define BXGMO_VERSION_3 3 /* returnedLength is set */

#define BXGMO_NO_WAIT 0                   /* 2033 at once where nothing is there */
#define BXGMO_WAIT 1                      /* 2033 only after waitInterval */
#define BXGMO_SYNCPOINT 2                 /* taken in the unit of work */
#define BXGMO_NO_SYNCPOINT 4              /* gone at once; so without either of the two */
#define BXGMO_BROWSE_FIRST 16             /* not with SYNCPOINT, the next one, or UNDER_CURSOR */
#define BXGMO_BROWSE_NEXT 32              /* the first one, where nothing was browsed yet */
#define BXGMO_ACCEPT_TRUNCATED_MESSAGE 64 /* 2079 instead of 2080 */
#define BXGMO_MESSAGE_UNDER_CURSOR 256    /* never waits; BXMO_* still hold */
#define BXGMO_FAIL_IF_QUIESCING 8192      /* accepted; managers end with their programs */

#define BXMO_NONE 0                 /* the first message, whatever the descriptor holds */
#define BXMO_MATCH_MESSAGE_ID 1     /* a zero identifier in the descriptor matches any */
#define BXMO_MATCH_CORRELATION_ID 2 /* likewise; with both, both must match */

#define BXWI_UNLIMITED (-1) /* a wait without an end */

/* How to get a message, and what came of it. */
typedef struct tagBXGMO {
  BXCHAR structId[4]; /* BXGMO_ID */
  BXLONG version;     /* nothing is read or written that a higher one adds */
  BXLONG options;     /* BXGMO_* */
  BXLONG waitInterval; /* milliseconds, used with BXGMO_WAIT */
  BXLONG reserved1;
  BXLONG reserved2;
  BXCHAR resolvedQueueName[BX_NAME_LENGTH]; /* set with a message: the queue it came from */
  /* version 2 */
  BXLONG matchOptions; /* BXMO_* */
  BXCHAR reserved3[4];
  /* version 3 */
  BXBYTE reserved4[16];
  BXLONG returnedLength; /* bytes written to the buffer */
} BXGMO;

/* ---- BXPMO, the put options ----------------------------------------------------------------- */

#define BXPMO_ID "PMO "
#define BXPMO_VERSION_1 1
#define BXPMO_NONE 0         /* no syncpoint */
#define BXPMO_SYNCPOINT 2    /* part of the unit of work */
#define BXPMO_NO_SYNCPOINT 4 /* on the disk when the call returns; not with the one before */
#define BXPMO_FAIL_IF_QUIESCING 8192 /* accepted, as with gets */

/* How to put a message, and where it went. */
typedef struct tagBXPMO {
  BXCHAR structId[4]; /* BXPMO_ID */
  BXLONG version;     /* BXPMO_VERSION_1 */
  BXLONG options;     /* BXPMO_* */
  BXLONG timeout; /* not used; -1 */
  BXCHAR resolvedQueueName[BX_NAME_LENGTH]; /* both set by a put, blank-padded ... */
  BXCHAR resolvedManagerName[BX_NAME_LENGTH]; /* ... to the queue and manager it went to */
} BXPMO;

/* ---- BXCNO and BXBO, connect and begin options ---------------------------------------------- */

#define BXCNO_ID "CNO "
#define BXCNO_VERSION_1 1
#define BXCNO_VERSION_4 4
#define BXCNO_NONE 0
#define BXCNO_HANDLE_SHARE_NONE 32    /* accepted; sharing between threads is always safe */
#define BXCNO_HANDLE_SHARE_BLOCK 64
#define BXCNO_HANDLE_SHARE_NO_BLOCK 128

/* How to connect; a null pointer does as well. */
typedef struct tagBXCNO {
  BXCHAR structId[4]; /* BXCNO_ID */
  BXLONG version;     /* 1 to 4; they are alike */
  BXLONG options;     /* one of BXCNO_* at most */
  BXLONG reserved[13];
} BXCNO;

#define BXBO_ID "BO  "
#define BXBO_VERSION_1 1
#define BXBO_NONE 0

/* For BXBEGIN; a null pointer does as well. */
typedef struct tagBXBO {
  BXCHAR structId[4]; /* BXBO_ID */
  BXLONG version;     /* BXBO_VERSION_1 */
  BXLONG options;     /* BXBO_NONE */
} BXBO;

/* ---- Initialisers --------------------------------------------------------------------------- */

/* Text fields are exactly as long as their blanks: C and C++ differ in whether a string literal
 * may lose its zero byte there, so the initialisers are written out as characters. */
#define BX_C4(a, b, c, d) {a, b, c, d}
#define BX_B4 ' ', ' ', ' ', ' '
#define BX_B8 BX_B4, BX_B4
#define BX_B12 BX_B8, BX_B4
#define BX_B28 BX_B12, BX_B12, BX_B4
#define BX_B32 BX_B28, BX_B4
#define BX_B48 BX_B32, BX_B12, BX_B4

#define BXMD_DEFAULT                                                                               \
  {BX_C4('M', 'D', ' ', ' '), BXMD_VERSION_1, 0, BXMT_DATAGRAM, BXEI_UNLIMITED, 0, BXENC_NATIVE,  \
   BXCS_Q_MGR, {BX_B8}, BXPRI_AS_Q_DEF, BXPER_AS_Q_DEF, {0}, {0}, 0, {BX_B48}, {BX_B48},          \
   {BX_B12}, {0}, {BX_B32}, 0, {BX_B28}, {BX_B8}, {BX_B8}, {BX_B4}, {0}, 1, 0, 0, -1}
#define BXOD_DEFAULT {BX_C4('O', 'D', ' ', ' '), BXOD_VERSION_1, BXOT_QUEUE, {BX_B48}, {BX_B48}}
#define BXGMO_DEFAULT                                                                              \
  {BX_C4('G', 'M', 'O', ' '), BXGMO_VERSION_1, BXGMO_NO_WAIT, 0, 0, 0, {BX_B48},                  \
   BXMO_MATCH_MESSAGE_ID + BXMO_MATCH_CORRELATION_ID, {BX_B4}, {0}, -1}
#define BXPMO_DEFAULT                                                                              \
  {BX_C4('P', 'M', 'O', ' '), BXPMO_VERSION_1, BXPMO_NONE, -1, {BX_B48}, {BX_B48}}
#define BXCNO_DEFAULT {BX_C4('C', 'N', 'O', ' '), BXCNO_VERSION_1, BXCNO_NONE, {0}}
#define BXBO_DEFAULT {BX_C4('B', 'O', ' ', ' '), BXBO_VERSION_1, BXBO_NONE}

/* ---- Connections ---------------------------------------------------------------------------- */

/*
 * BXCONN, BXCONNX - connect to a queue manager.
 *
 * name: the manager, ended by a zero byte also where it fills all 48 characters; empty or blank
 * selects the default manager.
 * With the embedded bindings, where there is no manager at all yet, a connect with an empty name
 * makes one called DEFAULT and marks it the default. A process may connect any number of times;
 * each connection is a handle and a unit of work of its own.
 *
 * On failure *connection is BXHC_UNUSABLE. 2058: there is no such manager (bxadm manager list
 * shows those there are). 2059: it is there but cannot be opened, damaged or of a newer version.
 * 2035: no permission on its folder. For these three a line on standard error says why. 2025: too
 * many connections.
 * BXCONNX also: 2139 and 2046 for the options, which may be a null pointer.
 */
BXENTRY void BXCONN(const BXCHAR* name, BXHCONN* connection, BXLONG* completion, BXLONG* reason);
BXENTRY void BXCONNX(const BXCHAR* name, BXCNO* options, BXHCONN* connection, BXLONG* completion,
                     BXLONG* reason);

/*
 * BXDISC - commit the unit of work, close every queue and end the connection.
 *
 * The handle ends in any case. 2003: the commit failed and the unit of work was backed out. 2124:
 * whether the unit of work counts is not known.
 */
BXENTRY void BXDISC(BXHCONN* connection, BXLONG* completion, BXLONG* reason);

/* ---- Queues --------------------------------------------------------------------------------- */

#define BXOO_INPUT_SHARED 2         /* for gets; others may get, too */
#define BXOO_BROWSE 8               /* for browses; with the above for gets under the cursor, too */
#define BXOO_OUTPUT 16              /* for puts */
#define BXOO_FAIL_IF_QUIESCING 8192 /* accepted, as with gets */
#define BXCO_NONE 0

/*
 * BXOPEN - open a queue for the calls that the options name: input for gets, browse for browses,
 * output for puts; at least one of them. Any number of connections may open the same queue.
 *
 * 2085: there is no such queue. 2086: the descriptor names another manager than the connected one.
 * 2044, 2043: the descriptor is not one of a queue. 2102: convention 10.
 */
BXENTRY void BXOPEN(BXHCONN connection, BXOD* descriptor, BXLONG options, BXHOBJ* object,
                    BXLONG* completion, BXLONG* reason);

/*
 * BXCLOSE - end an object handle and its browse cursor. Puts and gets of the unit of work stay
 * in it. options: BXCO_NONE.
 */
BXENTRY void BXCLOSE(BXHCONN connection, BXHOBJ* object, BXLONG options, BXLONG* completion,
                     BXLONG* reason);

/*
 * BXPUT - put one message of length bytes.
 *
 * With BXPMO_SYNCPOINT the message is part of the unit of work: nobody sees it before the commit.
 * Without, it is stored durably and can be got when the call returns. The descriptor returns the
 * message identifier, priority, put date and time as stored.
 *
 * Messages are got highest priority first, within a priority in the order in which their units of
 * work were committed, within one in the order of these calls.
 *
 * Warning 2049: the priority was above 9 and the message was put at 9. 2050: priority below -1.
 * 2013: expiry neither -1 nor above 0. 2047: unknown persistence. 2030, 2031: longer than the
 * queue or the manager takes. 2051: puts are inhibited. 2053: the queue is at its maximum depth,
 * uncommitted messages counted; nothing was put. 2039: not open for output. 2052: the queue was
 * deleted. 2124, without syncpoint only: the message may have been put or not. 2026, 2173: the
 * structures.
 */
BXENTRY void BXPUT(BXHCONN connection, BXHOBJ object, BXMD* descriptor, BXPMO* options,
                   BXLONG length, const void* buffer, BXLONG* completion, BXLONG* reason);

/*
 * BXGET - get or browse one message into a buffer of length bytes.
 *
 * Takes the first message that is committed, has not expired and is not taken by a unit of work
 * in progress. With BXGMO_SYNCPOINT it is gone for everybody at once and for good with the commit;
 * without, it is gone when the call returns. *dataLength is the message's true length.
 *
 * BXGMO_BROWSE_FIRST and BXGMO_BROWSE_NEXT return a message and leave it there, from the head of
 * the queue or after the one last browsed through this handle, in queue order. They block nobody,
 * and what a unit of work has taken is passed over. BXGMO_MESSAGE_UNDER_CURSOR takes the message
 * last browsed.
 *
 * BXGMO_WAIT waits up to waitInterval milliseconds for a message, -1 for ever, without using the
 * processor. BXMO_MATCH_* choose by the identifiers in the descriptor.
 *
 * 2033: no message (within the wait). 2034: no message under the cursor, or it was taken meanwhile.
 * 2080: the buffer is too small; it is filled, the message stays, *dataLength tells what is needed.
 * Warning 2079: the same with BXGMO_ACCEPT_TRUNCATED_MESSAGE; the message was taken (or the
 * cursor moved). 2037, 2036: not open for input or browse. 2052: the queue was deleted. 2090: wait
 * below -1. 2016: gets are inhibited. 2124, without syncpoint only: the message may be gone, or
 * there still. 2026, 2186: the structures. 2010: no dataLength.
 */
BXENTRY void BXGET(BXHCONN connection, BXHOBJ object, BXMD* descriptor, BXGMO* options,
                   BXLONG length, void* buffer, BXLONG* dataLength, BXLONG* completion,
                   BXLONG* reason);

/* ---- Units of work -------------------------------------------------------------------------- */

/*
 * BXCMIT - make the puts and gets under syncpoint since the last commit or backout count.
 *
 * When it returns 0, the puts survive a power cut and the gets survive the death of any process.
 * A power cut can bring back at most the last 1,000 messages got (while the process that got them
 * lives, those of the last 100 ms), unless the manager is set to full synchronisation.
 *
 * 2003: it failed and the unit of work was backed out, all of it. 2056: the disk is full, likewise
 * backed out. 2124: whether the unit of work counts is not known; all of it does, or nothing.
 */
BXENTRY void BXCMIT(BXHCONN connection, BXLONG* completion, BXLONG* reason);

/*
 * BXBACK - undo the puts and gets under syncpoint since the last commit or backout. Messages return
 * to their old places in the queue.
 */
BXENTRY void BXBACK(BXHCONN connection, BXLONG* completion, BXLONG* reason);

/*
 * BXBEGIN - begin a unit of work that other resource managers take part in. There are none to
 * offer: warning 2121, and the unit of work is the connection's own. 2134, 2046: the options, which
 * may be a null pointer.
 */
BXENTRY void BXBEGIN(BXHCONN connection, BXBO* options, BXLONG* completion, BXLONG* reason);

/* ---- Administration bags -------------------------------------------------------------------- */

/*
 * A bag is an ordered list of items, each a selector with an integer, a string or a nested bag.
 * Items with one selector are counted by an index from 0. Bags belong to the process, not to a
 * connection; calls on one bag run one after the other. An unknown bag is 2019.
 */
#define BXCBO_ADMIN_BAG 1 /* the one kind of bag */

/* Attributes of a queue: integers ... */
#define BXIA_CURRENT_DEPTH 3        /* committed messages plus uncommitted puts */
#define BXIA_DEFAULT_PERSISTENCE 5  /* BXPER_*, 1 unless given */
#define BXIA_DEFAULT_PRIORITY 6     /* of puts with BXPRI_AS_Q_DEF: 0 to 9, 0 unless given */
#define BXIA_INHIBIT_GET 9          /* BXPO_YES: gets and browses are 2016 */
#define BXIA_INHIBIT_PUT 10         /* BXPO_YES: puts are 2051 */
#define BXIA_MAX_MESSAGE_LENGTH 13  /* bytes, 1 to 104,857,600; 4,194,304 unless given */
#define BXIA_MAX_DEPTH 15           /* messages, 0 to 999,999,999; 5,000 unless given */
#define BXIA_OPEN_INPUT_COUNT 17    /* connections that have it open and got from it */
#define BXIA_OPEN_OUTPUT_COUNT 18   /* ... put to it; these, the counts and the age only where asked for */
#define BXIA_QUEUE_TYPE 20          /* BXQT_LOCAL */
#define BXIA_UNCOMMITTED 27         /* messages that are put and not committed */
#define BXIA_OLDEST_AGE 74          /* seconds since the oldest message was put; -1 without any */
#define BXIA_PURGE 1007             /* with a deletion: BXPO_YES deletes what is on the queue */
/* ... and strings, blank-padded to their fixed lengths */
#define BXCA_CREATION_DATE 2004
#define BXCA_CREATION_TIME 2005
#define BXCA_QUEUE_NAME 2016
#define BXCA_MANAGER_NAME 2017      /* empty: a local queue names no manager */
#define BXCA_ALTERATION_DATE 2027
#define BXCA_ALTERATION_TIME 2028
#define BXCA_CLUSTER_NAME 2029      /* kept and told, not used */
#define BXCA_PUT_COUNT 2030         /* digits; puts that count, since the manager began to count */
#define BXCA_GET_COUNT 2031         /* ... gets, with what has expired */
#define BXCA_COUNTED_SINCE 2032     /* digits; ms since 1970; empty where the manager cannot tell */

#define BXQT_LOCAL 1
#define BXPO_NO 0
#define BXPO_YES 1

/* Answers: one nested bag for each queue that the command was about. */
#define BXHA_RESPONSE 4001
#define BXIA_COMPLETION (-6) /* in a nested bag: the command's own codes for this queue */
#define BXIA_REASON (-7)

#define BXCMD_CHANGE_QUEUE 8
#define BXCMD_CREATE_QUEUE 11
#define BXCMD_DELETE_QUEUE 12
#define BXCMD_INQUIRE_QUEUE 13

#define BX_NULL_TERMINATED (-1) /* a length: the string ends at its zero byte */

/*
 * bxCreateBag, bxDeleteBag - make an empty bag; delete one with the bags nested in it, whose
 * handles end, too. options: BXCBO_ADMIN_BAG. A nested bag is not deleted by itself: 2019.
 */
BXENTRY void bxCreateBag(BXLONG options, BXHBAG* bag, BXLONG* completion, BXLONG* reason);
BXENTRY void bxDeleteBag(BXHBAG* bag, BXLONG* completion, BXLONG* reason);

/*
 * bxAddInteger, bxAddString, bxAddInquiry - append an item; an inquiry asks for an attribute.
 *
 * length: of the string in bytes, or BX_NULL_TERMINATED; below that it is 2005. Selectors are not
 * looked at here: bxExecute refuses those that a command does not know.
 */
BXENTRY void bxAddInteger(BXHBAG bag, BXLONG selector, BXLONG value, BXLONG* completion,
                          BXLONG* reason);
BXENTRY void bxAddString(BXHBAG bag, BXLONG selector, BXLONG length, const BXCHAR* buffer,
                         BXLONG* completion, BXLONG* reason);
BXENTRY void bxAddInquiry(BXHBAG bag, BXLONG selector, BXLONG* completion, BXLONG* reason);

/* bxCountItems - how many items have the selector; 0 is not an error. */
BXENTRY void bxCountItems(BXHBAG bag, BXLONG selector, BXLONG* count, BXLONG* completion,
                          BXLONG* reason);

/*
 * bxInquireInteger, bxInquireString, bxInquireBag - read one item.
 *
 * A string is blank-padded to the buffer; *stringLength is its length without the padding of the
 * buffer, *characterSet its BXCS_* number (either pointer may be null). Warning 2008: it was cut
 * at the buffer's end and *stringLength tells its true length. A nested bag stays owned by the one
 * that holds it: its handle is valid until that bag is deleted. 2067: no such selector, 2065: no
 * item with that index, 2068: an item of another type.
 */
BXENTRY void bxInquireInteger(BXHBAG bag, BXLONG selector, BXLONG index, BXLONG* value,
                              BXLONG* completion, BXLONG* reason);
BXENTRY void bxInquireString(BXHBAG bag, BXLONG selector, BXLONG index, BXLONG bufferLength,
                             BXCHAR* buffer, BXLONG* stringLength, BXLONG* characterSet,
                             BXLONG* completion, BXLONG* reason);
BXENTRY void bxInquireBag(BXHBAG bag, BXLONG selector, BXLONG index, BXHBAG* nested,
                          BXLONG* completion, BXLONG* reason);

/*
 * bxExecute - send a command to the manager's command server and wait for its answer.
 *
 * optionsBag: BXHB_NONE. adminQueue, responseQueue: BXHO_NONE; anything else is 2045. The command
 * bag names the queue (BXCA_QUEUE_NAME) and holds the command's arguments; the response bag is
 * emptied first. It is another one, and not nested in any, else 2019.
 *
 *  create: BXIA_QUEUE_TYPE 1, and any of BXIA_MAX_DEPTH, BXIA_MAX_MESSAGE_LENGTH,
 *          BXIA_DEFAULT_PERSISTENCE, BXIA_DEFAULT_PRIORITY, BXIA_INHIBIT_GET, BXIA_INHIBIT_PUT,
 *          BXCA_CLUSTER_NAME.
 *  change: the same but for the cluster's name; what is not given stays as it is. It holds for those
 *          who have the queue open, too; in a database from their next look at the queue on.
 *  delete: BXIA_PURGE. A queue may be deleted while others have it open: their calls then fail
 *          with 2052, and a commit that put to it with 2003.
 *  inquire: the inquiries tell which attributes are wanted; none means all.
 *
 * 2322: the command server is stopped (strbxcsv starts it). 3008: the command itself was refused;
 * nested bag 0 holds BXIA_COMPLETION and BXIA_REASON: 2085 no such queue or no such name, 2100 it
 * exists already, 2055 it is not empty, 2057 not a local queue, 2023 a number out of its range,
 * 2067 an argument is missing or unknown.
 */
BXENTRY void bxExecute(BXHCONN connection, BXLONG command, BXHBAG optionsBag, BXHBAG commandBag,
                       BXHBAG responseBag, BXHOBJ adminQueue, BXHOBJ responseQueue,
                       BXLONG* completion, BXLONG* reason);

/*
 * bxTrim - copy a blank-padded text of length bytes (up to a zero byte, if there is one) without
 * its trailing blanks, and end it with a zero byte. string has room for length + 1 bytes and may
 * be the buffer itself.
 */
BXENTRY void bxTrim(BXLONG length, const BXCHAR* buffer, BXCHAR* string, BXLONG* completion,
                    BXLONG* reason);

#ifdef __cplusplus
}
static_assert(sizeof(BXMD) == 364, "BXMD has 364 bytes");
static_assert(sizeof(BXGMO) == 100, "BXGMO has 100 bytes");
#endif

#endif
