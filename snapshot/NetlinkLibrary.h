#pragma once
// libmnl, the netlink library the live source reads the kernel with, is opened the first time
// the live source needs it rather than at every start of the program: a command attached to an
// agent or reading a file never uses it, and loading a shared library costs every start its
// mapping and relocations. NetlinkLibrary.cpp defines the library's functions the live
// source calls, each forwarding to the library's own.

namespace Snapshot {

// Opens the library if it is not open yet; throws LiveError saying why it cannot be.
void requireNetlinkLibrary();

}  // namespace Snapshot
