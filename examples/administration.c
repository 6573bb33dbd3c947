/*
 * administration.c - creates, inquires and deletes a queue.
 *
 *     cc administration.c $(pkg-config --cflags --libs bxm) -o administration
 *     ./administration create JOBS 100000
 *     ./administration inquire JOBS
 *     ./administration delete JOBS
 *
 * Shows: commands to a queue manager. A command's arguments are collected in a bag, its answers
 * come in another one, which holds a bag for each queue; where the manager refuses a command, the
 * nested bag tells why.
 */
#include <bx/bx.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int failed(const char* call, BXLONG reason) {
  fprintf(stderr, "%s failed with reason %d\n", call, (int)reason);
  return 1;
}

static BXLONG integer_of(BXHBAG bag, BXLONG selector) {
  BXLONG value = 0, completion, reason;
  bxInquireInteger(bag, selector, 0, &value, &completion, &reason);
  return value;
}

/* The first of the nested bags with the answers. */
static BXHBAG answer_in(BXHBAG response) {
  BXHBAG answer = BXHB_UNUSABLE;
  BXLONG completion, reason;
  bxInquireBag(response, BXHA_RESPONSE, 0, &answer, &completion, &reason);
  return answer;
}

static int execute(BXHCONN connection, BXLONG kind, BXHBAG command, BXHBAG response) {
  BXLONG completion, reason;
  bxExecute(connection, kind, BXHB_NONE, command, response, BXHO_NONE, BXHO_NONE, &completion,
            &reason);
  if (completion != BXCC_FAILED) return 0;
  if (reason == BXRC_COMMAND_FAILED)
    return failed("the command", integer_of(answer_in(response), BXIA_REASON));
  return failed("bxExecute", reason);
}

static int show(BXHBAG answer) {
  BXCHAR name[BX_NAME_LENGTH + 1];
  BXLONG completion, reason;
  bxInquireString(answer, BXCA_QUEUE_NAME, 0, BX_NAME_LENGTH, name, NULL, NULL, &completion,
                  &reason);
  if (completion == BXCC_FAILED) return failed("bxInquireString", reason);
  bxTrim(BX_NAME_LENGTH, name, name, &completion, &reason);
  printf("%s: %d of at most %d messages\n", name, (int)integer_of(answer, BXIA_CURRENT_DEPTH),
         (int)integer_of(answer, BXIA_MAX_DEPTH));
  return 0;
}

/* Adding to a bag fails only for want of memory; the command then lacks an argument, and says so.
 */
static int administer(BXHCONN connection, BXHBAG command, BXHBAG response, char** arguments) {
  BXLONG completion, reason;
  bxAddString(command, BXCA_QUEUE_NAME, BX_NULL_TERMINATED, arguments[1], &completion, &reason);
  bxAddInteger(command, BXIA_QUEUE_TYPE, BXQT_LOCAL, &completion, &reason);
  if (strcmp(arguments[0], "create") == 0) {
    if (arguments[2])
      bxAddInteger(command, BXIA_MAX_DEPTH, (BXLONG)atol(arguments[2]), &completion, &reason);
    return execute(connection, BXCMD_CREATE_QUEUE, command, response);
  }
  if (strcmp(arguments[0], "delete") == 0) { /* refused unless the queue is empty */
    bxAddInteger(command, BXIA_PURGE, BXPO_NO, &completion, &reason);
    return execute(connection, BXCMD_DELETE_QUEUE, command, response);
  }
  bxAddInquiry(command, BXCA_QUEUE_NAME, &completion, &reason);
  bxAddInquiry(command, BXIA_CURRENT_DEPTH, &completion, &reason);
  bxAddInquiry(command, BXIA_MAX_DEPTH, &completion, &reason);
  if (execute(connection, BXCMD_INQUIRE_QUEUE, command, response) != 0) return 1;
  return show(answer_in(response));
}

int main(int count, char** arguments) {
  BXHCONN connection;
  BXHBAG command = BXHB_UNUSABLE, response = BXHB_UNUSABLE;
  BXLONG completion, reason;
  int status;

  if (count < 3) {
    fprintf(stderr, "usage: %s create|inquire|delete QUEUE [DEPTH]\n", arguments[0]);
    return 2;
  }
  BXCONN("", &connection, &completion, &reason);
  if (completion == BXCC_FAILED) return failed("BXCONN", reason);
  bxCreateBag(BXCBO_ADMIN_BAG, &command, &completion, &reason);
  bxCreateBag(BXCBO_ADMIN_BAG, &response, &completion, &reason);
  status = administer(connection, command, response, arguments + 1);
  bxDeleteBag(&response, &completion, &reason); /* with the bags nested in it */
  bxDeleteBag(&command, &completion, &reason);
  BXDISC(&connection, &completion, &reason);
  return status;
}
