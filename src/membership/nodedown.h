// What follows a server found silent: the report, the move of its browser containers when it was
// the peer (master or slave), and the platform's take-over script, queued to run beside the cycle
// (membership/takeover_queue.h); and the sweep that deletes members silent for cnf.clustsweep
// minutes.
#pragma once

#include "membership/takeover_queue.h"
#include "store/clust_record.h"

namespace qor {

// rec: the silent server's row as the monitor read it; queue: the watcher's take-over runs
// (DetectorMemory's). Returns without waiting for the script; a server whose take-over is queued
// or running already is not taken over twice.
void Qordown(TakeoverQueue& queue, const ClustRecord& rec);
// The daemon, once at its start: its take-over queue is kept in kTakeoverRecord from now on, and
// what a predecessor left there is taken over.
void UseQordownRecord(TakeoverQueue& queue);
// Never blocks: collects the end of the take-over script in progress and starts the next one.
// The daemon calls it once per cycle.
void AdvanceQordown(TakeoverQueue& queue);
// Returns once every take-over script of queue has ended, however long that takes: for the
// one-shot -monitor only, never for the daemon's cycle.
void WaitQordown(TakeoverQueue& queue);

// Moves the lumobr_ container rows of the server at source to destination, in the database of
// destination. 0 (also when no pool serves destination, or the statement failed), 500 without a
// usable connection.
int LumoBRContainerRepaireSql(const char* source, const char* destination);

// Deletes stale member rows where this node is responsible. Call only when cnf.clustsweep > 0.
void SweepCluster();

}  // namespace qor
