/// The registry entry through which a bridge finds this server. There is one slot per user, and the last writer wins.
#pragma once

/// Announces this process's server, or withdraws whatever is announced. Failures are not reported.
void AnnounceControlServer(bool enabled);

/// Withdraws this process's own announcement when the process ends without a stop. Takes no lock and waits for nothing:
/// the other threads are gone by then and may have died holding a lock.
void WithdrawAtProcessEnd();
