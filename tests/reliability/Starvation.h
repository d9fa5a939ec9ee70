#pragma once

namespace vireotest {

/// From now on the calling thread finds no memory, until endStarvation().
void starve();
void endStarvation();

} // namespace vireotest
