# Include paths cannot stop a quoted include that climbs out of its own folder
# ("../server/X.h") or names an absolute path, since those are found without any include
# path; so no source under src/ may write one. Run with -DSOURCE_DIR=<src>.
file(GLOB_RECURSE files ${SOURCE_DIR}/*.h ${SOURCE_DIR}/*.cpp)
list(LENGTH files count)
if(count EQUAL 0)
    message(FATAL_ERROR "no sources found under ${SOURCE_DIR}")
endif()
set(offenders "")
foreach(file IN LISTS files)
    file(STRINGS ${file} lines REGEX "^[ \t]*#[ \t]*include[ \t]*[\"<](/|[^\">]*\\.\\./)")
    foreach(line IN LISTS lines)
        string(APPEND offenders "\n  ${file}: ${line}")
    endforeach()
endforeach()
if(offenders)
    message(FATAL_ERROR "includes that bypass the library include roots:${offenders}")
endif()
message(STATUS "${count} sources include only through their roots")
