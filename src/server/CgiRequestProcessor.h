#pragma once

#include <string>

#include "server/HtmlPageSender.h"

namespace Zarn {

class HttpRequest;
class KorvelConfig;
class MountManager;

// Runs the CGI program NAME of the owner's CGI folder for "/cgi-bin/NAME/more?query" and
// relays its answer. Programs run only from that folder (the setting cgiFolder; empty
// means CGI is off), never from a shared folder: while a mount covers the folder, CGI
// stays off. A program that says nothing for cgiTimeout seconds, or whose visitor goes
// away, is stopped together with everything it started. One object per request, on its
// connection thread.
class CgiRequestProcessor {
public:
    struct Options {
        KorvelConfig* config = nullptr;
        const MountManager* mounts = nullptr;
        HtmlPageSender::Context page{};
        int server_port = 0;
    };

    // Whether the request path is one for a CGI program: its first segment is "cgi-bin",
    // CGI is on, and no mount has that name (a mount of the name wins).
    [[nodiscard]] static bool Handles(const std::string& path, KorvelConfig& config,
                                      const MountManager& mounts);

    explicit CgiRequestProcessor(Options options) : options_(std::move(options)) {}

    // Writes the whole response: the program's, or an error page (404 for a program that
    // may not run, 502 for one that does not speak CGI, 504 for one that stays silent).
    // Throws socket_exception when the visitor leaves.
    void Process(HttpRequest& request);

private:
    // True when a mount covers the folder; says why in the log, once until it no longer does.
    [[nodiscard]] bool IsFolderShared(const std::string& folder) const;
    void Run(HttpRequest& request, HtmlPageSender& pages, const std::string& folder,
             const std::string& program);

    Options options_;
};

}  // namespace Zarn
