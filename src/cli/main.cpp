#include "cli/dispatch.h"

int main(int argc, char** argv) {
  return qor::QorMain(argc, argv);
}
