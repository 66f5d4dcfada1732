// The server thread of one device: makes the HDC server, accepts sessions, and makes the server
// anew when accepting fails.
#pragma once

// Body of a server thread; the argument is its DeviceInfo, of which the thread takes its own share.
// Returns null when the teardown ends it, when the device was removed, or when a session thread
// cannot be started.
void* IdeDaemonHdcHandleEvent(void* arg);
