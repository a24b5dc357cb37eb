#pragma once

#include <string>

#include "server/VisitorScope.h"

namespace Zarn {

class HttpRequest;
class NameSearch;

// Answers "?action=Search&q=WORDS": the entries below the requested folder whose names
// hold every word, as a listing page whose rows also name the folder each was found in
// ("$folder", "$folder_link"), with "$search_query", "$search_count" and, when a bound cut
// the search short, "$search_note". At the root it searches every folder mount the visitor
// may list. One object per request, on the connection's thread; the dispatcher has checked
// the path, the mount and the right to list before it gets here.
class SearchRequestProcessor {
public:
    using Options = VisitorScope;

    explicit SearchRequestProcessor(Options options) : options_(std::move(options)) {}
    virtual ~SearchRequestProcessor() = default;

    // Sends the results, or 404 when the path does not name a folder.
    void SendResults(HttpRequest& request);

private:
    void SearchMounts(NameSearch& search) const;
    void SendPage(HttpRequest& request, const NameSearch& search, const std::string& query);

    Options options_;
};

}  // namespace Zarn
