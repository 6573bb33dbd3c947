/*
 * get.c - takes a message off a queue, waiting for it.
 *
 *     cc get.c $(pkg-config --cflags --libs bxm) -o get
 *     ./get JOBS 60          # waits a minute at the most; status 1: there was none
 *
 * Shows: a get that waits without using the processor; a buffer that grows to the message; a unit
 * of work, so that the message is back for the next one if this program dies before it is done.
 */
#include <bx/bx.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { NOTHING = 1, FAILED = 2 };

static int failed(const char* call, BXLONG reason) {
  fprintf(stderr, "%s failed with reason %d\n", call, (int)reason);
  return FAILED;
}

/* Gets one message; *data is to be freed, whatever comes of it. */
static BXLONG get(BXHCONN connection, BXHOBJ queue, BXLONG wait, char** data, BXLONG* length) {
  BXGMO options = BXGMO_DEFAULT;
  BXLONG room = 4096;
  BXLONG completion, reason;

  options.options = BXGMO_WAIT + BXGMO_SYNCPOINT;
  options.waitInterval = wait;
  *data = NULL;
  for (;;) {
    BXMD descriptor = BXMD_DEFAULT; /* matches any message; the last try has changed it */
    char* larger = realloc(*data, (size_t)room);
    if (!larger) return BXRC_RESOURCE_PROBLEM;
    *data = larger;
    BXGET(connection, queue, &descriptor, &options, room, *data, length, &completion, &reason);
    if (reason != BXRC_TRUNCATED_FAILED) return reason;
    room = *length; /* it stayed on the queue; somebody may have taken it when we look again */
  }
}

static int work(const char* data, BXLONG length) {
  return fwrite(data, 1, (size_t)length, stdout) == (size_t)length && putchar('\n') != EOF &&
         fflush(stdout) == 0;
}

static int work_one_off(BXHCONN connection, BXHOBJ queue, BXLONG wait) {
  char* data;
  BXLONG length, completion, reason, got;
  int done;

  got = get(connection, queue, wait, &data, &length);
  done = got == BXRC_NONE && work(data, length);
  free(data);
  if (got == BXRC_NO_MESSAGE_AVAILABLE) return NOTHING;
  if (got != BXRC_NONE) return failed("BXGET", got);
  if (!done) { /* it goes back to its place */
    BXBACK(connection, &completion, &reason);
    return FAILED;
  }
  BXCMIT(connection, &completion, &reason); /* from now on it is gone for good */
  return completion == BXCC_FAILED ? failed("BXCMIT", reason) : 0;
}

int main(int count, char** arguments) {
  BXOD object = BXOD_DEFAULT;
  BXHCONN connection;
  BXHOBJ queue;
  BXLONG completion, reason;
  int status;

  if (count != 3) {
    fprintf(stderr, "usage: %s QUEUE SECONDS\n", arguments[0]);
    return FAILED;
  }
  BXCONN("", &connection, &completion, &reason);
  if (completion == BXCC_FAILED) return failed("BXCONN", reason);
  memcpy(object.objectName, arguments[1], strnlen(arguments[1], BX_NAME_LENGTH)); /* over blanks */
  BXOPEN(connection, &object, BXOO_INPUT_SHARED, &queue, &completion, &reason);
  status = completion == BXCC_FAILED
               ? failed("BXOPEN", reason)
               : work_one_off(connection, queue, (BXLONG)(1000 * atol(arguments[2])));
  BXDISC(&connection, &completion, &reason); /* closes the queue, too */
  return status;
}
