// -explain and -explainj: the detector's verdict on every row it judges, as the running daemon's
// monitor would reach it now, from the daemon's own observations and the rows as they are; the
// take-overs held, queued and running. Reads only: writes nothing, runs nothing but a ping.
#pragma once

namespace qor {

// json: the JSON form. 0, also on a member, which judges nobody.
int Explain(bool json);

}  // namespace qor
