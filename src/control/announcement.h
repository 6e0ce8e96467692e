/// The registry entry through which a bridge finds this server. Each user has one slot: the last to write it wins.
#pragma once

/// Announces this process's server, or withdraws whatever the registry has. Failures are not reported.
void AnnounceControlServer(bool enabled);

/// Withdraws this process's own announcement when the process ends without a stop. Takes no lock and waits for nothing:
/// the other threads are gone by then and may have died holding a lock.
void WithdrawAtProcessEnd();
