// The work the daemon's signals ask for: a folder request (SIGUSR1) and the
// periodic rescan (SIGALRM).
//
// Both run on the main thread's signal loop, never in signal context and never
// concurrently with each other or themselves.
#pragma once

// Reads the folder request file and adds or removes that folder, then
// publishes one SystemUpdateID. Ignores any signal but SIGUSR1; does nothing
// at all when the file cannot be opened or its path is too long.
void UsbSigHandler(int signal);

// Applies the pending change events and arms the next rescan in dwTime seconds.
void _dlnaExeRebuild();
