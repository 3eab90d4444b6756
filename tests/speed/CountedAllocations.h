// Counts what operator new hands out in this test program.
#pragma once

#include <cstdint>

namespace vidloom::test {

int64_t allocationCount();

}  // namespace vidloom::test
