#include "store/zdb_boundary.h"

#include <stdlib.h>
#include <zdb.h>

#include "store/client_waits.h"

#define QZ_MAX_COLUMNS 64

struct QzPool {
  URL_T url;
  ConnectionPool_T pool;
  int timed_out; /* a call on it ran out of time since qz_pool_rearm */
};

struct QzConn {
  Connection_T con;
  QzPool* pool;
};

/* Set once at start-up (qz_set_fatal_handler), called by the library's abort handler. */
static QzFatalFn fatal_handler = NULL;

void qz_set_fatal_handler(QzFatalFn fn) {
  fatal_handler = fn;
}

/* The library calls this instead of ending the process itself. Returning would let the call it
 * interrupted carry on past the error (a query would take a half-read table as complete) with a
 * library that may no longer be used, so the handler ends the process. */
static void abort_handler(const char* error) {
  fatal_handler(error);
}

QzPool* qz_pool_start(const char* url, int initial) {
  if (fatal_handler == NULL) return NULL;
  QzPool* volatile p = calloc(1, sizeof *p);
  if (p == NULL) return NULL;
  p->url = URL_new(url);
  if (p->url == NULL) {
    free(p);
    return NULL;
  }
  p->pool = ConnectionPool_new(p->url);
  ConnectionPool_setAbortHandler(p->pool, abort_handler);
  ConnectionPool_setInitialConnections(p->pool, initial);
  volatile int ok = 1;
  qz_wait_begin(&p->timed_out);
  TRY {
    ConnectionPool_start(p->pool);
  }
  CATCH(SQLException) {
    ok = 0;
  }
  END_TRY;
  qz_wait_end();
  if (!ok) {
    qz_pool_free(p);
    return NULL;
  }
  return p;
}

void qz_pool_free(QzPool* p) {
  if (p == NULL) return;
  qz_wait_begin(&p->timed_out);
  if (p->pool != NULL) ConnectionPool_free(&p->pool);
  qz_wait_end();
  if (p->url != NULL) URL_free(&p->url);
  free(p);
}

void qz_pool_rearm(QzPool* p) {
  p->timed_out = 0;
}

int qz_pool_timed_out(const QzPool* p) {
  return p->timed_out;
}

QzConn* qz_get(QzPool* p) {
  if (p == NULL || p->timed_out) return NULL;
  Connection_T volatile con = NULL;
  qz_wait_begin(&p->timed_out);
  TRY {
    con = ConnectionPool_getConnection(p->pool);
  }
  CATCH(SQLException) {
    con = NULL;
  }
  END_TRY;
  qz_wait_end();
  if (con == NULL) return NULL;
  QzConn* c = malloc(sizeof *c);
  if (c == NULL) {
    Connection_close(con);
    return NULL;
  }
  c->con = con;
  c->pool = p;
  return c;
}

int qz_ping(QzConn* c) {
  volatile int alive = 0;
  qz_wait_begin(&c->pool->timed_out);
  TRY {
    alive = Connection_ping(c->con) ? 1 : 0;
  }
  CATCH(SQLException) {
    alive = 0;
  }
  END_TRY;
  qz_wait_end();
  return alive;
}

void qz_close(QzConn* c) {
  if (c == NULL) return;
  qz_wait_begin(&c->pool->timed_out);
  Connection_close(c->con);
  qz_wait_end();
  free(c);
}

int qz_execute(QzConn* c, const char* sql) {
  volatile int rc = 0;
  qz_wait_begin(&c->pool->timed_out);
  TRY {
    Connection_execute(c->con, "%s", sql);
  }
  CATCH(SQLException) {
    rc = -1;
  }
  END_TRY;
  qz_wait_end();
  return rc;
}

int qz_query(QzConn* c, const char* sql, QzRowFn fn, void* ctx) {
  volatile int rc = 0;
  qz_wait_begin(&c->pool->timed_out);
  TRY {
    ResultSet_T r = Connection_executeQuery(c->con, "%s", sql);
    if (r == NULL) {
      rc = -2;
    } else {
      int n = ResultSet_getColumnCount(r);
      if (n > QZ_MAX_COLUMNS) n = QZ_MAX_COLUMNS;
      const char* values[QZ_MAX_COLUMNS];
      while (ResultSet_next(r)) {
        for (int i = 0; i < n; i++) values[i] = ResultSet_getString(r, i + 1);
        fn(ctx, n, values);
      }
    }
  }
  CATCH(SQLException) {
    rc = -1;
  }
  END_TRY;
  qz_wait_end();
  return rc;
}
