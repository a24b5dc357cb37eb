#pragma once

#include <cstddef>

namespace Zarn {

// Writes a file that arrives piece by piece and must end up on the disk. Every megabyte it
// starts the disk on what came so far while the next pieces arrive, so that the sync at the
// end waits for the last megabyte only, and a disk slower than the network holds the sender
// back instead of filling memory with pages still to be written.
// Used by one thread.
class WriteBehind {
public:
    static constexpr size_t kStartBytes = 1 << 20;

    // Writes every byte to `fd` (borrowed), going on after short writes and signals; false
    // on an error (a full disk, say).
    [[nodiscard]] bool Write(int fd, const char* bytes, size_t length);
    // Waits until the file's bytes are on the disk; false when the disk reports it lost some.
    [[nodiscard]] static bool Sync(int fd);

private:
    size_t unstarted_ = 0;  // bytes written since the disk was last set to work
};

}  // namespace Zarn
