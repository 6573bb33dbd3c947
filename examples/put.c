/*
 * put.c - puts messages on a queue.
 *
 *     cc put.c $(pkg-config --cflags --libs bxm) -o put
 *     ./put JOBS "first job" "second job"
 *
 * Shows: connect, open, put; the message identifier that the manager gives; how failures are told.
 * When it has ended with 0, every message is on the disk. With bxic in place of bxm the same
 * program works on queues in a database.
 */
#include <bx/bx.h>

#include <stdio.h>
#include <string.h>

static int failed(const char* call, BXLONG reason) {
  fprintf(stderr, "%s failed with reason %d\n", call, (int)reason);
  return 1;
}

static int put(BXHCONN connection, BXHOBJ queue, const char* text) {
  BXMD descriptor = BXMD_DEFAULT; /* a new one for each message: the identifier returns in it */
  BXPMO options = BXPMO_DEFAULT;  /* no unit of work: on the disk when the call returns */
  BXLONG completion, reason;
  int n;

  memcpy(descriptor.format, BXFMT_STRING, sizeof descriptor.format);
  BXPUT(connection, queue, &descriptor, &options, (BXLONG)strlen(text), text, &completion, &reason);
  if (completion == BXCC_FAILED) return failed("BXPUT", reason);
  for (n = 0; n < BX_IDENTIFIER_LENGTH; ++n) printf("%02x", descriptor.messageId[n]);
  printf(" %s\n", text);
  return 0;
}

static int put_all(BXHCONN connection, const char* name, char** texts) {
  BXOD object = BXOD_DEFAULT;
  BXHOBJ queue;
  BXLONG completion, reason;
  int status = 0;

  memcpy(object.objectName, name, strnlen(name, BX_NAME_LENGTH)); /* over blanks */
  BXOPEN(connection, &object, BXOO_OUTPUT, &queue, &completion, &reason);
  if (completion == BXCC_FAILED) return failed("BXOPEN", reason);
  while (*texts && status == 0) status = put(connection, queue, *texts++);
  BXCLOSE(connection, &queue, BXCO_NONE, &completion, &reason);
  return status;
}

int main(int count, char** arguments) {
  BXHCONN connection;
  BXLONG completion, reason;
  int status;

  if (count < 3) {
    fprintf(stderr, "usage: %s QUEUE TEXT...\n", arguments[0]);
    return 2;
  }
  BXCONN("", &connection, &completion, &reason); /* the default manager */
  if (completion == BXCC_FAILED) return failed("BXCONN", reason);
  status = put_all(connection, arguments[1], arguments + 2);
  BXDISC(&connection, &completion, &reason);
  return status;
}
