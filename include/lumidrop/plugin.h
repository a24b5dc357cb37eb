/*
 * Korvel Lumidrop plug-in interface.
 *
 * A plug-in is a shared library (NAME.so) in the home folder's Plugin/ folder. The
 * program loads every such library at start and again when the owner reloads plug-ins
 * (owner's console, Plug-ins page, or `lumidrop ctl plugins reload`). Its static files
 * (scripts, style sheets, pictures) live in the folder Plugin/NAME/, where NAME is what
 * GetPlugInName returns, and visitors fetch them with
 *
 *     /?action=PluginResource&plugin=NAME&file=RELATIVE/PATH
 *
 * A plug-in is one of two types:
 *   - a view plug-in shows a folder another way (a gallery, say). Listings offer it as a
 *     view of the folder: /FOLDER/?action=Plugin&plugin=NAME
 *   - an action plug-in does something with a folder or with the files the visitor
 *     selected (a playlist, say). Listings offer it as a button over the selection:
 *     /FOLDER/?action=Plugin&plugin=NAME&selectedFiles=a.mp3%0Ab.mp3
 *     (one name per line, each relative to the folder; the host has already refused any
 *     name that is absolute or contains "..").
 * The host calls OnRequest for such a request, after the IP filter, the account check and
 * the rights check (the list right and GetRequiredAuthority's bits on the folder's mount),
 * with a download slot of the visitor's address held. OnRequest writes the whole response
 * through the host functions below.
 *
 * THE PLUG-IN RUNS INSIDE THE SERVER PROCESS. A plug-in that crashes (a bad pointer, an
 * abort) crashes the whole program and ends every transfer; one that blocks holds a
 * connection. Load only plug-ins you trust as you trust the program itself.
 *
 * Threads: OnRequest is called on the connection threads, for many requests at once; a
 * plug-in guards its own shared state. Initialize and Finalize are called once each, with
 * no OnRequest running. A plug-in is unloaded (Finalize, then the library is closed)
 * only after its last running request has returned, so a reload never pulls a library
 * from under a request.
 *
 * Building: the header is plain C99 and needs nothing of the program. With C++, include
 * it as it is (the entry points are declared extern "C"):
 *
 *     cc -std=c99 -shared -fPIC -I/path/to/include -o hello.so hello.c
 *
 * See docs/plugins.md for a complete example.
 */
#ifndef LUMIDROP_PLUGIN_H
#define LUMIDROP_PLUGIN_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * The version of this interface. Initialize receives the host's version and returns the
 * version the plug-in was built against (this macro, when compiled). The host refuses a
 * plug-in whose version is newer than its own; a plug-in built against an older version
 * keeps working, because later versions only add members at the end of LumidropHost.
 * A plug-in that wants a member added in version N checks host->version >= N first.
 */
#define LUMIDROP_PLUGIN_INTERFACE_VERSION 1

/* What GetPlugInType returns. */
#define LUMIDROP_PLUGIN_VIEW 1
#define LUMIDROP_PLUGIN_ACTION 2

/* Rights bits, as GetRequiredAuthority and LumidropHost.rights use them. */
#define LUMIDROP_RIGHT_LIST 1u     /* browse folders */
#define LUMIDROP_RIGHT_DOWNLOAD 2u /* download files */
#define LUMIDROP_RIGHT_UPLOAD 4u   /* upload files and create folders */
#define LUMIDROP_RIGHT_ADMIN 8u    /* delete, rename and move */

/* Log levels, as the owner's log filters them. */
#define LUMIDROP_LOG_PROGRESS 2u
#define LUMIDROP_LOG_CONNECTION 4u
#define LUMIDROP_LOG_ERROR 8u
#define LUMIDROP_LOG_NOTICE 16u

/* One request being served; valid only during the OnRequest call it was given to. */
typedef struct LumidropRequest LumidropRequest;

/*
 * What the host offers a plug-in. Given to Initialize; the pointer and everything it
 * points to stay valid until Finalize returns.
 *
 * Texts are UTF-8 and NUL-terminated. A text the host returns during a request stays
 * valid until OnRequest returns; copy it to keep it longer. A function that "returns
 * NULL" for a missing value never returns NULL otherwise.
 */
typedef struct LumidropHost {
    /* LUMIDROP_PLUGIN_INTERFACE_VERSION of the host. */
    unsigned version;
    /* sizeof(LumidropHost) of the host, for the same purpose. */
    size_t size;
    /* This plug-in's own folder, Plugin/NAME/ of the home folder, absolute, ending in
     * "/". It may not exist; the plug-in may keep files of its own there, but everything
     * in it can be fetched by anyone through PluginResource. */
    const char* plugin_folder;

    /* --- The request --------------------------------------------------------------- */

    /* The decoded path of the request, without its leading "/" ("music/live/"). It names
     * a folder, so it ends in "/" (or is "" for the root, which plug-ins never get). */
    const char* (*path)(LumidropRequest* request);
    /* The decoded value of a query parameter, or NULL. */
    const char* (*query)(LumidropRequest* request, const char* name);
    /* The decoded value of a parameter of an urlencoded form (a POST), or NULL. The
     * first call reads the form from the connection. */
    const char* (*form)(LumidropRequest* request, const char* name);
    /* The value of a request header, the name in any case ("User-Agent"), or NULL. */
    const char* (*header)(LumidropRequest* request, const char* name);
    /* The visitor's address ("192.0.2.7"). */
    const char* (*client_address)(LumidropRequest* request);
    /* The name the visitor logged in with; "" for anonymous visitors. */
    const char* (*user_name)(LumidropRequest* request);
    /* The visitor's rights bits on the mount of the request's path. */
    unsigned (*rights)(LumidropRequest* request);
    /* The local path of a virtual path ("music/live/a.mp3", no leading "/"), or NULL
     * when it is outside every mount, leads out of its mount (by ".." or a link), is
     * hidden from visitors, or the visitor lacks any of `needed_rights` on its mount.
     * The path need not exist (for a file the plug-in is about to create). */
    const char* (*local_path)(LumidropRequest* request, const char* virtual_path,
                              unsigned needed_rights);
    /* Reads up to `length` bytes of the request body of a multipart POST
     * (Content-Type multipart/...), which stays on the connection for the plug-in. Any
     * other POST body is an urlencoded form, read before the plug-in runs (see `form`),
     * and reads as empty here. Returns the count, 0 at the end of the body, -1 when the
     * connection failed. */
    long (*read_body)(LumidropRequest* request, void* buffer, size_t length);

    /* --- The response ---------------------------------------------------------------- */

    /* The status of the response; 200 "OK" unless set. Returns 0, or -1 once the head
     * has gone out (after the first write_body). */
    int (*set_status)(LumidropRequest* request, int code, const char* reason);
    /* Adds a response header. "Content-Length" sets the body's length (the plug-in must
     * then write exactly that many bytes); without it the body is sent chunked or until
     * the connection closes. "Connection", "Transfer-Encoding" and "Date" are the host's
     * and are refused, as is any header after the head has gone out, and any name or
     * value with a line break. Returns 0 or -1. */
    int (*add_header)(LumidropRequest* request, const char* name, const char* value);
    /* Writes body bytes; the first call sends the head. Returns 0, or -1 when the visitor
     * has gone or the transfer was stopped by the owner: the plug-in should then return
     * from OnRequest without writing more. A response with no write gets an empty body. */
    int (*write_body)(LumidropRequest* request, const void* bytes, size_t length);

    /* --- Services --------------------------------------------------------------------- */

    /* Writes a line to the program's log (request may be NULL outside a request; with a
     * request the line names the visitor). */
    void (*log)(LumidropRequest* request, unsigned level, const char* text);
    /* The translation of a text into the owner's chosen language (the key as given when
     * the language file has none). Inside a request the result lives until OnRequest
     * returns; with request NULL (in Initialize) until Finalize. */
    const char* (*translate)(LumidropRequest* request, const char* key);
    /* HTML-escapes a text for an element's content or an attribute value in quotes
     * (& < > " ' become entities). The result lives as translate's does. */
    const char* (*html_escape)(LumidropRequest* request, const char* text);
    /* URL-encodes a path for a link, as the listings do ("/" stays, a blank becomes
     * "%20"). The result lives as translate's does. */
    const char* (*url_encode)(LumidropRequest* request, const char* text);
} LumidropHost;

/*
 * The entry points. A library that lacks any of them is refused (the log names the
 * missing one). Every text they return must stay valid while the library is loaded
 * (string literals are best).
 */

/* Who made it, for the owner's Plug-ins page. */
const char* GetPlugInAuthor(void);
/* Its name: 1 to 64 letters, digits, "-" or "_". Names the plug-in in addresses and its
 * folder Plugin/NAME/; two plug-ins with one name are refused after the first. Listings
 * show its translation (a language file may carry the name as a key). */
const char* GetPlugInName(void);
/* Its version, free text ("1.2"). */
const char* GetPlugInVersion(void);
/* LUMIDROP_PLUGIN_VIEW or LUMIDROP_PLUGIN_ACTION; anything else is refused. */
int GetPlugInType(void);
/* Called once after loading. Returns the interface version the plug-in was built against
 * (LUMIDROP_PLUGIN_INTERFACE_VERSION), or 0 when it cannot work (the host logs the
 * refusal and unloads it without calling Finalize). `host` stays valid until Finalize. */
unsigned Initialize(const LumidropHost* host, unsigned host_version);
/* Called once before unloading, after the last request has returned. */
void Finalize(void);
/* Serves one request (see the top of this file). Returns 0 when it answered, anything
 * else when it failed: if nothing was written yet, the host then sends an error page
 * (500), else it closes the connection. */
int OnRequest(LumidropRequest* request);
/* The rights bits a visitor needs on the folder's mount besides LUMIDROP_RIGHT_LIST
 * (which is always needed), e.g. LUMIDROP_RIGHT_DOWNLOAD for a plug-in that shows or
 * hands out the files. Asked once, at loading. */
unsigned GetRequiredAuthority(void);

#ifdef __cplusplus
}
#endif

#endif /* LUMIDROP_PLUGIN_H */
