#include "server/SearchRequestProcessor.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <memory>
#include <optional>
#include <vector>

#include "config/KorvelConfig.h"
#include "core/StringUtil.h"
#include "http/HttpRequest.h"
#include "i18n/Translate.h"
#include "log/Log.h"
#include "server/ListRequestProcessor.h"
#include "server/ListingRows.h"
#include "server/NameSearch.h"
#include "server/TextFormat.h"
#include "share/AccountManager.h"
#include "share/LocalTarget.h"
#include "share/MountManager.h"

namespace Zarn {
namespace {

// A visitor waits for the page, and the thread serves nobody else meanwhile.
constexpr size_t kMaxResults = 1000;
constexpr std::chrono::seconds kMaxWork{5};

// Folder by folder in the tree's order, the folders of each before its files.
std::vector<const NameSearch::Match*> InPageOrder(const std::vector<NameSearch::Match>& found) {
    std::vector<const NameSearch::Match*> ordered;
    ordered.reserve(found.size());
    for (const NameSearch::Match& match : found)
        ordered.push_back(&match);
    std::sort(ordered.begin(), ordered.end(), [](const auto* a, const auto* b) {
        if (a->folder != b->folder) return a->folder < b->folder;
        if (a->is_folder != b->is_folder) return a->is_folder;
        return a->name < b->name;
    });
    return ordered;
}

std::string NoteOf(NameSearch::Bound bound) {
    switch (bound) {
        case NameSearch::Bound::kResults:
            return Translate("찾은 항목이 너무 많아 처음 1,000개만 보여 줍니다.");
        case NameSearch::Bound::kTime:
            return Translate("검색이 5초를 넘어 그때까지 찾은 항목만 보여 줍니다.");
        case NameSearch::Bound::kDescriptors:  // answered 503 instead
        case NameSearch::Bound::kNone:
            break;
    }
    return {};
}

}  // namespace

void SearchRequestProcessor::SendResults(HttpRequest& request) {
    std::string query;
    (void)request.GetQueryParameter("q", query);
    LogTranslated(kLogProgress, "Search 시작 - %s", query.c_str());
    NameSearch search({.query = query,
                       .show_hidden = options_.config->showHiddenFiles,
                       .max_results = kMaxResults,
                       .deadline = NameSearch::Clock::now() + kMaxWork});
    const std::string& path = request.GetPath();
    if (path.empty()) {
        SearchMounts(search);
    } else {
        errno = 0;  // tells a folder that is missing from one that could not be opened now
        std::optional<LocalTarget> target = options_.mounts->ResolveTarget(path);
        struct stat info {};
        if (!target || !target->Stat(info) || !S_ISDIR(info.st_mode)) {
            HtmlPageSender(request, options_.page)
                .SendOpenFailure(target && S_ISREG(info.st_mode) ? ENOTDIR : errno);
            LogTranslated(kLogProgress, "Search 성공 - %zu", static_cast<size_t>(0));
            return;
        }
        search.Search(*target, Concat({"/", path, path.back() == '/' ? "" : "/"}));
    }
    if (search.GetBound() == NameSearch::Bound::kDescriptors) {
        return HtmlPageSender(request, options_.page).SendOpenFailure(EMFILE);
    }
    SendPage(request, search, query);
    LogTranslated(kLogProgress, "Search 성공 - %zu", search.GetMatches().size());
}

void SearchRequestProcessor::SearchMounts(NameSearch& search) const {
    for (const std::string& name : options_.mounts->ListNames()) {
        std::optional<Mount> mount = options_.mounts->GetMount(name);
        std::optional<uint32_t> rights = options_.accounts->GetRights(options_.user, name);
        if (!mount || !mount->is_folder || !rights || (*rights & kRightList) == 0) continue;
        if (std::optional<LocalTarget> target = options_.mounts->ResolveTarget(name)) {
            search.Search(*target, Concat({"/", name, "/"}));
        }
    }
}

void SearchRequestProcessor::SendPage(HttpRequest& request, const NameSearch& search,
                                      const std::string& query) {
    auto rows = std::make_unique<ListingRows>(options_.types);
    for (const NameSearch::Match* match : InPageOrder(search.GetMatches())) {
        if (match->is_folder) {
            rows->AddFolder(match->name, match->folder);
        } else {
            rows->AddFile(match->name, match->bytes, match->modified, match->folder);
        }
    }
    const std::string& path = request.GetPath();
    TextContent page;
    page.SetScalar("$address", HtmlEscape(Concat({"/", path})));
    page.SetScalar("$content", Translate("주소: /") + HtmlEscape(path));
    page.SetScalar("$search_query", HtmlEscape(query));
    page.SetScalar("$search_count", GroupDigits(static_cast<uint64_t>(search.GetMatches().size())));
    std::string note = NoteOf(search.GetBound());
    if (!note.empty()) page.SetScalar("$search_note", HtmlEscape(note));
    ListRequestProcessor(
        {.config = options_.config, .mounts = options_.mounts, .page = options_.page})
        .SendRows(request, std::move(rows), std::move(page));
}

}  // namespace Zarn
