#pragma once

namespace orvane::platform {

/// Takes from this process what no decoder needs: more than 768 MiB of memory of its own, writing
/// to files, core dumps, the host's folder, and a life after the thread that started it.
void limitResources();

/// Takes the rest, once everything that has to be opened is open: opening files and asking whether
/// they exist, the network, other processes and signals to them, memory beside that limit. The
/// kernel refuses every call that is not on the list of what decoding takes.
///
/// What it cannot take: time on the processor, also between images (a limit would count all that
/// the worker has decoded), and threads (the kernel counts those of the user, not of a process).
void confine();

}  // namespace orvane::platform
