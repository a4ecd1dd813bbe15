/* A bound on every wait for a database server. The pool library's MySQL driver sets nothing but
 * a connect timeout, so a server that stops answering in the middle of a statement (hung,
 * stopped, its packets dropped) would hold the caller until TCP gives up, or for ever. This file
 * takes over the database client library's connect, for the pool's connections and for the
 * client library's own reconnects alike: each connection gets connect, read and write timeouts
 * and a wait function of ours, through which every wait for its server passes. It also makes the
 * pool's cursors fetch many rows per round trip (mysql_stmt_attr_set below).
 *
 * Waits are charged to the call under way, which zdb_boundary.c brackets with qz_wait_begin and
 * qz_wait_end: all its waits together end QZ_WAIT_SECONDS after it began, however many
 * connections the pool library pings or opens within it. A wait that runs out, or a call that
 * outlasts its time, sets the flag the call was given; while that flag is set, every wait charged
 * to it ends at once. Single-threaded, as the program is. */
#ifndef QOR_STORE_CLIENT_WAITS_H
#define QOR_STORE_CLIENT_WAITS_H

#ifdef __cplusplus
extern "C" {
#endif

/* Two seconds: far above what a heartbeat's statements take on an answering server, and low
 * enough that a hung server costs one cycle little more than its own length. */
#define QZ_WAIT_SECONDS 2

/* Rows a cursor fetches in one round trip: more than a full table (64 rows, and the 65th that
 * tells a read there are more). */
#define QZ_PREFETCH_ROWS 128

void qz_wait_begin(int* timed_out);
void qz_wait_end(void);

#ifdef __cplusplus
}
#endif

#endif
