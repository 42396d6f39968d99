#include "protocol/protocol.h"

int main(int argc, char** argv) { return velkor::run_engine(argc, argv); }
