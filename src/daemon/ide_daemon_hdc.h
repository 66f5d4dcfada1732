// The HDC component: finds the devices, keeps a record of each, and starts one server thread per
// device.
#pragma once

#include <cstdint>

// Waits up to ten minutes for a first device, registers the devices and makes the HDC client.
// Returns 0, or -1 when the scan failed, reported too many devices or the client cannot be had.
int32_t IdeDaemonHdcInit();

// Destroys the servers, wakes their threads and waits a bounded time for running session threads.
// Returns 0 in every case.
int32_t IdeDaemonHdcDestroy();

// The main thread's loop: starts a server thread for each record that has none whenever the device
// semaphore is posted. Returns when the teardown has cleared the run flag or when the semaphore,
// the mutex or a thread fails.
void IdeDaemonHdcCreateServers();

// Adds a record for each physical id that has none, and posts the device semaphore.
void IdeDaemonHdcRegisterDevices(uint32_t devNum, const uint32_t* phyIds);
