// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Opens and controls the simulated kernel's devices.
#ifndef TARN_SIM_DEVICE_H
#define TARN_SIM_DEVICE_H

namespace tarn_sim {

// Opens a device for which the launcher has a socket; `path` is the gateway's. As open(2); ENODEV without a launcher.
int open_device(const char *path, int flags);

// Whether the request is for a simulated device. If so, `*result` and errno are as those of ioctl(2); ENODEV without a
// launcher. Reads and writes only the bytes of the request's argument.
bool device_ioctl(int file, unsigned long request, void *argument, int *result);

}  // namespace tarn_sim

#endif
