// The payment window benchmark for the GTK window (see PaymentPageBench.h).
#include "Toolkit.h"
//
#include "PaymentPageBench.h"

int main(int argc, char** argv) { return bench::run(argc, argv); }
