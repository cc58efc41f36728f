#pragma once

namespace orvane::platform {

/// Takes from this process what no decoder needs: more than 768 MiB of memory, writing to files,
/// core dumps, and a life after the thread that started it.
void limitResources();

/// Takes the rest, once everything that has to be opened is open: opening files, the network, other
/// processes. The kernel refuses every call that is not on the list of what decoding takes.
void confine();

}  // namespace orvane::platform
