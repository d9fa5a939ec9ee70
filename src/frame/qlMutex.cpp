#include "vireo/support/qlMutex.h"

qlMutex::qlMutex() = default;

qlMutex::~qlMutex() = default;
