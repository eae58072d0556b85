// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The simulated kernel's devices, as the shim opens and controls them.
#ifndef TARN_SIM_DEVICE_H
#define TARN_SIM_DEVICE_H

namespace tarn_sim {

// Opens the stand-in of a device, a gateway's path, on which a socket stands. As open(2); ENODEV without a launcher.
int open_device(const char *path, int flags);

// Whether the request is one for a simulated device; then `*result` and errno are as of ioctl(2), ENODEV without a
// launcher. Only what the request's argument holds is read and written.
bool device_ioctl(int file, unsigned long request, void *argument, int *result);

}  // namespace tarn_sim

#endif
