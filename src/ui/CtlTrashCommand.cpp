#include "ui/CtlTrashCommand.h"

#include "core/JsonValue.h"
#include "ui/CtlContext.h"
#include "ui/CtlTable.h"

namespace Zarn {
namespace {

void PrintTrash(const JsonValue& answer) {
    CtlTable table;
    table.Add({"MOUNT", "FILES", "BYTES"});
    if (const JsonValue* mounts = answer.Find("mounts")) {
        for (const JsonValue& mount : mounts->Items())
            table.Add({mount.Text("name"), mount.Text("files"), mount.Text("bytes")});
    }
    table.Print();
}

}  // namespace

int CtlTrashCommand::Run(CtlContext& context) {
    size_t words = context.WordCount();
    if (words == 1 || (words == 2 && context.Word(1) == "list")) {
        return context.Query(false, "trash", PrintTrash);
    }
    if (words <= 3 && context.Word(1) == "empty") {
        return context.Change("trash/empty", {{"mount", words == 3 ? context.Word(2) : "all"}},
                              PrintTrash);
    }
    return CtlContext::Usage("trash [list] | trash empty [MOUNT]");
}

}  // namespace Zarn
