#include "morvex_crec.h"

int main(int argc, char** argv) {
  return RunDaemon(argc, argv);
}
