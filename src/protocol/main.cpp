#include <cstdlib>

#include "protocol/protocol.h"

// The end goes through exit: as WebAssembly, a main that has waited for
// input has already handed control back to its host once, and only exit
// tells the host that the engine has ended.
int main(int argc, char** argv) { std::exit(velkor::run_engine(argc, argv)); }
