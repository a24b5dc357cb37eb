// A skin archive: loading checks its structure, and every entry it lists must extract or
// fail with a reason, never read outside the archive or allocate past the limits.
#include <cstddef>
#include <cstdint>
#include <string>

#include "skin/Unzip.h"

using Teko::Unzip;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Unzip archive;
    if (!archive.Load(data, size)) {
        if (archive.EntryCount() != 0) __builtin_trap();
        return 0;
    }
    for (const std::string& name : archive.EntryNames()) {
        std::string bytes;
        const Unzip::ExtractResult result = archive.Extract(name, bytes);
        if (result == Unzip::ExtractResult::kNotFound) __builtin_trap();
        if (result == Unzip::ExtractResult::kOk && bytes.size() > Unzip::kMaxEntrySize) {
            __builtin_trap();
        }
    }
    return 0;
}
