#define _GNU_SOURCE
#include "store/client_waits.h"

#include <dlfcn.h>
#include <errno.h>
#include <mysql.h>
#include <poll.h>
#include <string.h>
#include <time.h>

/* Why this mechanism, as measured against a stopped server (SIGSTOP) and against one whose
 * packets are dropped, with a pool of 5 connections (the pool library's URL offers a connect
 * timeout only, and its query timeout does nothing for MySQL):
 * - Without a read timeout the client library polls its non-blocking socket with no limit:
 *   SO_RCVTIMEO on the descriptor changes nothing, and a pool call waits as long as the fault.
 * - With read, write and connect timeouts alone (T seconds), one failed read ends after T, with
 *   no retry; but the pool pings each idle connection in turn before it hands one out, and each
 *   failed ping reconnects: 5 x (T + T) + T, 22 s for T = 2.
 * - Through the wait function below, the whole call ends after QZ_WAIT_SECONDS and the rest of
 *   the cycle's calls on that pool fail at once.
 * The timeouts stay set as well: were the wait function ignored, a call would still end, if after
 * the longer figure, and the pool would still be passed over for the rest of the cycle. */

/* The call under way, set and cleared around each one by the boundary, read by the wait function
 * the client library calls. */
static int* charged; /* the flag of the call under way; NULL between calls */
static long long deadline_ms;

static long long now_ms(void) {
  struct timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return (long long)t.tv_sec * 1000 + t.tv_nsec / 1000000;
}

void qz_wait_begin(int* timed_out) {
  charged = timed_out;
  deadline_ms = now_ms() + QZ_WAIT_SECONDS * 1000LL;
}

/* A call that outlasted its time counts as timed out even if no wait of it ran out. */
void qz_wait_end(void) {
  if (charged != NULL && now_ms() >= deadline_ms) *charged = 1;
  charged = NULL;
}

/* The client library's wait for its socket: > 0 ready, 0 ran out (errno ETIMEDOUT), < 0 error.
 * timeout_ms is the library's own limit, -1 for none. */
static int bounded_wait(my_socket fd, my_bool is_read, int timeout_ms) {
  long long now = now_ms();
  long long end = charged != NULL ? deadline_ms : now + QZ_WAIT_SECONDS * 1000LL;
  if (timeout_ms >= 0 && now + timeout_ms < end) end = now + timeout_ms;
  if (charged != NULL && *charged) end = now;
  struct pollfd p = {fd, (short)(is_read ? POLLIN : POLLOUT), 0};
  for (;;) {
    long long left = end - now_ms();
    int rc = poll(&p, 1, left > 0 ? (int)left : 0);
    if (rc > 0) return rc;
    if (rc == 0) {
      if (charged != NULL) *charged = 1;
      errno = ETIMEDOUT;
      return 0;
    }
    if (errno != EINTR) return rc;
  }
}

typedef MYSQL* (*ConnectFn)(MYSQL*, const char*, const char*, const char*, const char*,
                            unsigned int, const char*, unsigned long);
typedef int (*WaitFn)(my_socket, my_bool, int);

/* Defined in the executable, this is the one the pool library (and the client library, when it
 * reconnects) calls: the link exports a definition that a linked shared library references. */
MYSQL* mysql_real_connect(MYSQL* mysql, const char* host, const char* user, const char* passwd,
                          const char* db, unsigned int port, const char* unix_socket,
                          unsigned long clientflag) {
  static ConnectFn real = NULL; /* found once, on the first call */
  if (real == NULL) {
    void* sym = dlsym(RTLD_NEXT, "mysql_real_connect");
    _Static_assert(sizeof sym == sizeof real, "function and object pointers differ");
    memcpy(&real, &sym, sizeof real);
  }
  if (real == NULL) return NULL;
  unsigned int seconds = QZ_WAIT_SECONDS;
  mysql_options(mysql, MYSQL_OPT_CONNECT_TIMEOUT, &seconds);
  mysql_options(mysql, MYSQL_OPT_READ_TIMEOUT, &seconds);
  mysql_options(mysql, MYSQL_OPT_WRITE_TIMEOUT, &seconds);
  WaitFn wait = bounded_wait;
  void* arg;
  memcpy(&arg, &wait, sizeof arg);
  mysql_options(mysql, MARIADB_OPT_IO_WAIT, arg);
  return real(mysql, host, user, passwd, db, port, unix_socket, clientflag);
}

typedef my_bool (*AttrSetFn)(MYSQL_STMT*, enum enum_stmt_attr_type, const void*);

/* Round trips. The pool library runs every query as a prepared statement read through a
 * read-only cursor and fetches the rows one at a time: a read of the whole table cost a round
 * trip per row (68 for 64 rows), and every server reads the table each cycle. A statement asked
 * for a cursor here also fetches up to QZ_PREFETCH_ROWS rows a trip, so any read of the table
 * comes in one fetch: ping, prepare, execute, fetch. The rows and their order are the server's
 * as before; only the number of trips changes. Defined in the executable like the connect
 * above, so the pool library's calls land here. */
my_bool mysql_stmt_attr_set(MYSQL_STMT* stmt, enum enum_stmt_attr_type attr, const void* value) {
  static AttrSetFn real = NULL; /* found once, on the first call */
  if (real == NULL) {
    void* sym = dlsym(RTLD_NEXT, "mysql_stmt_attr_set");
    memcpy(&real, &sym, sizeof real);
  }
  if (real == NULL) return 1;
  my_bool failed = real(stmt, attr, value);
  if (!failed && attr == STMT_ATTR_CURSOR_TYPE && value != NULL &&
      *(const unsigned long*)value != CURSOR_TYPE_NO_CURSOR) {
    unsigned long rows = QZ_PREFETCH_ROWS;
    failed = real(stmt, STMT_ATTR_PREFETCH_ROWS, &rows);
  }
  return failed;
}
