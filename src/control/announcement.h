/// The registry entry by which a bridge finds this server. One slot for the whole user: the last to write it wins.
#pragma once

/// Writes the announcement of this process's server, or withdraws whatever stands there. Reports nothing.
void AnnounceControlServer(bool enabled);

/// Withdraws the announcement of a process that ends without a stop, if it is this process's own. Takes no lock and
/// waits for nothing: the process's other threads are gone, and may have died holding one.
void WithdrawAtProcessEnd();
