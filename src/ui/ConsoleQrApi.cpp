#include "ui/ConsoleQrApi.h"

#include <optional>
#include <string>

#include "core/QrCode.h"
#include "http/HttpRequest.h"
#include "i18n/Translate.h"
#include "ui/ConsoleApi.h"

namespace Zarn {

void ConsoleQrApi::Send(HttpRequest& request) {
    std::string text;
    if (!request.GetQueryParameter("text", text) || text.empty()) {
        return ConsoleApi::SendError(request, 400, "Bad Request", "text",
                                     Translate("QR 코드로 만들 글이 없습니다."));
    }
    std::optional<QrCode> code = QrCode::Encode(text);
    if (!code) {
        return ConsoleApi::SendError(request, 400, "Bad Request", "text",
                                     Translate("QR 코드에 담기에는 글이 너무 깁니다."));
    }
    std::string svg = code->ToSvg();
    // The address changes with the port and the network, so a cached image could lead a
    // phone astray.
    request.SendHead(ResponseHead(200, "OK")
                         .Add("Content-Type", "image/svg+xml")
                         .Add("Cache-Control", "no-store")
                         .Add("X-Content-Type-Options", "nosniff")
                         .SetContentLength(svg.size())
                         .AllowKeepAlive());
    request.Send(svg);
    request.EndResponse();
}

}  // namespace Zarn
