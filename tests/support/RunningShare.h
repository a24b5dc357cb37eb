#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

#include "support/ConsoleSession.h"
#include "support/HttpClient.h"
#include "support/Multipart.h"
#include "support/ProgramRunner.h"
#include "support/TempFolder.h"

namespace Zarn::testing {

// The real program on a home of its own, sharing share_ as "docs" in English; the usual
// set-up of the end-to-end tests.
class RunningShare : public ::testing::Test {
protected:
    // Writes mount.ini with the settings (lines ending in \r\n) and starts the program,
    // after stopping one that runs: two on one home refuse each other.
    void Start(const std::string& settings = "", bool share_docs = true) {
        Stop();
        home_.Write("mount.ini", (share_docs ? "mounts+=docs|" + share_.Path() + "|x|yes|x|no\r\n"
                                             : std::string()) +
                                     "uiLanguageFile=English.wul\r\n" + settings);
        Relaunch();
    }
    // Starts the program with the owner's console on a free port.
    void StartWithConsole(const std::string& settings = "", bool share_docs = true) {
        Start("consolePort=0\r\n" + settings, share_docs);
    }
    // A fresh program on the same home and its mount.ini, as after a reboot.
    void Relaunch() {
        bool had_console = console_.has_value();
        Stop();
        program_ = std::make_unique<ProgramRunner>(home_.Path());
        port_ = program_->Port();
        if (had_console || home_.Read("mount.ini").find("consolePort=0") != std::string::npos)
            console_.emplace(*program_);
    }
    void Stop() {
        console_.reset();
        program_.reset();
    }

    [[nodiscard]] HttpResponse Visit(const std::string& target,
                                     const std::string& headers = "") const {
        return Get(port_, target, headers);
    }
    // One file posted as the upload form does.
    [[nodiscard]] HttpResponse Upload(const std::string& target, const std::string& name,
                                      const std::string& content,
                                      const std::string& headers = "") const {
        return PostParts(target, {{"uploadfile", name, content}}, headers);
    }
    [[nodiscard]] HttpResponse PostParts(const std::string& target,
                                         const std::vector<FormPart>& parts,
                                         const std::string& headers = "") const {
        std::string body = MultipartBody(parts);
        std::string head = MultipartHead(target, body.size());
        head.insert(head.find("\r\n") + 2, headers);
        return Fetch(port_, head + body);
    }

    TempFolder share_;
    TempFolder home_;
    TempFolder outside_;  // beside the share, where links out of it lead
    std::unique_ptr<ProgramRunner> program_;
    std::optional<ConsoleSession> console_;
    int port_ = -1;
};

inline bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

}  // namespace Zarn::testing
