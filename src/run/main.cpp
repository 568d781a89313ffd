// riffle: large-eddy simulation of open-channel flow over a bed. One argument: the case file.
#include "run/driver_m.hpp"

int main(int argc, char** argv) { return riffle::riffle(argc, argv); }
