/* The only doorway to the connection-pool library. Its exception guard is built on
 * setjmp/longjmp, so every library call stays inside zdb_boundary.c, in C frames, and C++ sees
 * plain return codes. Rows go out through a callback that makes no library call, so no jump ever
 * crosses a C++ frame. */
#ifndef QOR_STORE_ZDB_BOUNDARY_H
#define QOR_STORE_ZDB_BOUNDARY_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct QzPool QzPool;
typedef struct QzConn QzConn;

/* Called with the library's message after an error it documents as fatal (out of memory, an
 * exception no handler caught), after which it may not be used again. Must not return. */
typedef void (*QzFatalFn)(const char* message);
void qz_set_fatal_handler(QzFatalFn fn);

/* Creates and starts a pool on url with initial connections. NULL when the library raised an
 * SQL exception while starting (wrong password, server not listening): nothing is left over; and
 * NULL before a fatal handler is set. */
QzPool* qz_pool_start(const char* url, int initial);
void qz_pool_free(QzPool* pool);

/* Every call on a pool, and on the connections it gave, waits for the server at most
 * QZ_WAIT_SECONDS (client_waits.h). Once a call ran out of time, the pool counts as timed out:
 * qz_get gives nothing, at once, and every wait ends at once, until qz_pool_rearm. */
void qz_pool_rearm(QzPool* pool);
int qz_pool_timed_out(const QzPool* pool);

/* A connection of the pool, or NULL when it has none to give or has timed out. */
QzConn* qz_get(QzPool* pool);
/* 1 when the connection's server answers. */
int qz_ping(QzConn* conn);
/* Gives the connection back to its pool. */
void qz_close(QzConn* conn);

/* Runs a statement without result: 0 done, -1 the database raised an error. */
int qz_execute(QzConn* conn, const char* sql);

/* One row: values[i] is NULL for SQL NULL. Strings live until the callback returns. It runs
 * inside the library's frames, so it must neither throw nor call the library. */
typedef void (*QzRowFn)(void* ctx, int ncols, const char* const* values);
/* Runs a query and hands each row to fn: 0 done, -1 the database raised an error, -2 no
 * result set. At most 64 columns of a row are handed out. */
int qz_query(QzConn* conn, const char* sql, QzRowFn fn, void* ctx);

#ifdef __cplusplus
}
#endif

#endif
