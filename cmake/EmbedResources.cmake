# Writes a C++ source that holds the files given in RESOURCE_FILES (paths relative to
# RESOURCE_ROOT) as byte arrays, found at run time by their relative path.
# Run as: cmake -DRESOURCE_ROOT=... -DRESOURCE_FILES="a;b" -DOUTPUT=... -P EmbedResources.cmake

set(body "")
set(table "")
set(index 0)
foreach(relative IN LISTS RESOURCE_FILES)
    file(READ "${RESOURCE_ROOT}/${relative}" hex HEX)
    string(LENGTH "${hex}" hex_length)
    math(EXPR size "${hex_length} / 2")
    string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
    string(APPEND body "alignas(8) const unsigned char kData${index}[] = {${bytes}0x00};\n")
    string(APPEND table "    {\"${relative}\", kData${index}, ${size}},\n")
    math(EXPR index "${index} + 1")
endforeach()

file(WRITE "${OUTPUT}.new" "// Generated from res/ at build time; do not edit.
#include \"core/EmbeddedResources.h\"

namespace Zarn {
namespace {

${body}
const EmbeddedResource kResources[] = {
${table}    {nullptr, nullptr, 0},
};

}  // namespace

std::span<const EmbeddedResource> AllEmbeddedResources() {
    return std::span<const EmbeddedResource>(kResources, ${index});
}

}  // namespace Zarn
")
file(COPY_FILE "${OUTPUT}.new" "${OUTPUT}" ONLY_IF_DIFFERENT)
file(REMOVE "${OUTPUT}.new")
