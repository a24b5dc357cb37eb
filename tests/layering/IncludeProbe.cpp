// Built only by the layering tests (tests/CMakeLists.txt), never into a program: includes
// the one header named by LUMIDROP_PROBE_HEADER with the include paths of the library the
// probe target links.
#include LUMIDROP_PROBE_HEADER
