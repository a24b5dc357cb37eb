/*
 * A plug-in for the tests, built in several variants by compile definitions:
 *   (none)             the view plug-in "probe", which answers by the "mode" query
 *   PROBE_ACTION       the action plug-in "probe_action", needing the download right
 *   PROBE_NO_AUTHORITY lacks GetRequiredAuthority
 *   PROBE_INIT_FAILS   Initialize returns 0
 *   PROBE_NEWER        built for an interface newer than the host's
 * Initialize and Finalize append a line to "events" in the plug-in's folder, so that the
 * tests see when the host calls them.
 */
#define _POSIX_C_SOURCE 200809L
#include <lumidrop/plugin.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#ifndef PROBE_NAME
#define PROBE_NAME "probe"
#endif

static const LumidropHost* host;

static void Note(const char* event) {
    /* Beside the plug-ins' own folders, which need not exist: "HOME/Plugin/events". */
    char path[4096];
    char* end;
    snprintf(path, sizeof path, "%s", host->plugin_folder);
    path[strlen(path) - 1] = '\0';
    end = strrchr(path, '/');
    if (end == NULL) return;
    strcpy(end + 1, "events");
    FILE* file = fopen(path, "a");
    if (file == NULL) return;
    fprintf(file, "%s %s\n", PROBE_NAME, event);
    fclose(file);
}

const char* GetPlugInAuthor(void) {
    return "Probe Author";
}
const char* GetPlugInName(void) {
    return PROBE_NAME;
}
const char* GetPlugInVersion(void) {
    return "0.1";
}

int GetPlugInType(void) {
#ifdef PROBE_ACTION
    return LUMIDROP_PLUGIN_ACTION;
#else
    return LUMIDROP_PLUGIN_VIEW;
#endif
}

#ifndef PROBE_NO_AUTHORITY
unsigned GetRequiredAuthority(void) {
#ifdef PROBE_ACTION
    return LUMIDROP_RIGHT_DOWNLOAD;
#else
    return 0;
#endif
}
#endif

unsigned Initialize(const LumidropHost* given, unsigned host_version) {
    host = given;
    if (host_version < 1 || given->size < sizeof(LumidropHost)) return 0;
    Note("initialized");
    host->log(NULL, LUMIDROP_LOG_NOTICE, host->translate(NULL, "probe says hello"));
#if defined(PROBE_INIT_FAILS)
    return 0;
#elif defined(PROBE_NEWER)
    return LUMIDROP_PLUGIN_INTERFACE_VERSION + 1;
#else
    return LUMIDROP_PLUGIN_INTERFACE_VERSION;
#endif
}

void Finalize(void) {
    Note("finalized");
}

static int Say(LumidropRequest* request, const char* label, const char* value) {
    char line[8192];
    int length = snprintf(line, sizeof line, "%s=%s\n", label, value ? value : "(null)");
    return host->write_body(request, line, (size_t)length);
}

/* Every request value, one per line. */
static int Echo(LumidropRequest* request) {
    char rights[16];
    const char* wanted = host->query(request, "local");
    const char* need = host->query(request, "need");
    snprintf(rights, sizeof rights, "%u", host->rights(request));
    host->add_header(request, "Content-Type", "text/plain");
    Say(request, "path", host->path(request));
    Say(request, "query", host->query(request, "q"));
    Say(request, "missing", host->query(request, "nothing"));
    Say(request, "header", host->header(request, "x-probe"));
    Say(request, "client", host->client_address(request));
    Say(request, "user", host->user_name(request));
    Say(request, "rights", rights);
    Say(request, "selected", host->query(request, "selectedFiles"));
    Say(request, "local",
        wanted ? host->local_path(request, wanted, need ? (unsigned)atoi(need) : 0) : NULL);
    Say(request, "escaped", host->html_escape(request, "<a href=\"x\">&'"));
    Say(request, "encoded", host->url_encode(request, "a b/c"));
    Say(request, "translated", host->translate(request, "probe says hello"));
    host->log(request, LUMIDROP_LOG_NOTICE, "probe echoed");
    return 0;
}

/* A POST: the form, or the raw body, back. */
static int Post(LumidropRequest* request) {
    const char* field = host->form(request, "field");
    if (field != NULL) return Say(request, "field", field);
    char buffer[4096];
    long total = 0;
    long got;
    while ((got = host->read_body(request, buffer, sizeof buffer)) > 0)
        total += got;
    snprintf(buffer, sizeof buffer, "%ld", total);
    return Say(request, "body bytes", buffer);
}

/* A head of its own: status, a length, and the headers the host keeps for itself. */
static int Framed(LumidropRequest* request) {
    char refusals[64];
    int refused = host->add_header(request, "Connection", "close") +
                  host->add_header(request, "Transfer-Encoding", "gzip") +
                  host->add_header(request, "X-Bad", "a\r\nInjected: 1") +
                  host->add_header(request, "Content-Length", "12x");
    host->set_status(request, 202, "Taken");
    host->add_header(request, "X-Probe", "yes");
    host->add_header(request, "Content-Length", "5");
    host->write_body(request, "hel", 3);
    host->write_body(request, "lo", 2);
    snprintf(refusals, sizeof refusals, "%d %d %d", refused, host->set_status(request, 200, "OK"),
             host->add_header(request, "X-Late", "1"));
    host->log(request, LUMIDROP_LOG_NOTICE, refusals);
    return 0;
}

/* Writes half, then waits (up to ten seconds) for the file "go" in its folder. */
static int Slow(LumidropRequest* request) {
    char path[4096];
    struct timespec pause = {0, 20 * 1000 * 1000};
    int round;
    snprintf(path, sizeof path, "%sgo", host->plugin_folder);
    if (host->write_body(request, "first half,", 11) != 0) return 1;
    for (round = 0; round < 500 && access(path, F_OK) != 0; ++round)
        nanosleep(&pause, NULL);
    return host->write_body(request, " second half", 12);
}

int OnRequest(LumidropRequest* request) {
    const char* mode = host->query(request, "mode");
    if (mode == NULL) mode = "echo";
    if (strcmp(mode, "fail") == 0) return 1;
    if (strcmp(mode, "post") == 0) return Post(request);
    if (strcmp(mode, "framed") == 0) return Framed(request);
    if (strcmp(mode, "slow") == 0) return Slow(request);
    if (strcmp(mode, "silent") == 0) return 0;
    return Echo(request);
}
