# Writes a C++ source that holds files as byte arrays, found at run time by name.
# RESOURCES is a list of "name=absolute path" pairs.
# Run as: cmake "-DRESOURCES=a=/x/a;b=/x/b" -DOUTPUT=... -P EmbedResources.cmake

set(body "")
set(table "")
set(index 0)
foreach(pair IN LISTS RESOURCES)
    string(FIND "${pair}" "=" split)
    string(SUBSTRING "${pair}" 0 ${split} name)
    math(EXPR path_start "${split} + 1")
    string(SUBSTRING "${pair}" ${path_start} -1 path)
    file(READ "${path}" hex HEX)
    string(LENGTH "${hex}" hex_length)
    math(EXPR size "${hex_length} / 2")
    string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
    string(APPEND body "alignas(8) const unsigned char kData${index}[] = {${bytes}0x00};\n")
    string(APPEND table "    {\"${name}\", kData${index}, ${size}},\n")
    math(EXPR index "${index} + 1")
endforeach()

file(WRITE "${OUTPUT}.new" "// Generated at build time; do not edit.
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
