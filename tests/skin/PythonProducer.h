#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "support/TempFolder.h"

namespace Teko::testing {

// Runs a python3 program, with zlib and zipfile as a producer of archives and deflate
// streams independent of ours, in a fresh temporary folder. The program hands back byte
// strings with emit(bytes); Run() returns them in order, or nullopt when python3 fails.
class PythonProducer {
public:
    [[nodiscard]] static bool IsAvailable() {
        static const bool available =
            std::system("python3 -c 'import zlib, zipfile' >/dev/null 2>&1") == 0;
        return available;
    }

    [[nodiscard]] static std::optional<std::vector<std::string>> Run(const std::string& program) {
        Zarn::testing::TempFolder folder;
        folder.Write("produce.py",
                     "import io, random, struct, sys, warnings, zipfile, zlib\n"
                     "def emit(data):\n"
                     "    sys.stdout.buffer.write(struct.pack('<Q', len(data)) + data)\n" +
                         program);
        std::string command = "cd '" + folder.Path() + "' && python3 produce.py > produced";
        if (std::system(command.c_str()) != 0) return std::nullopt;
        const std::string output = folder.Read("produced");

        std::vector<std::string> results;
        for (size_t offset = 0; offset + 8 <= output.size();) {
            uint64_t length = 0;
            std::memcpy(&length, output.data() + offset, 8);
            results.push_back(output.substr(offset + 8, length));
            offset += 8 + length;
        }
        return results;
    }
};

}  // namespace Teko::testing
