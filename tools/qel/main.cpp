#include "commands.h"

int main(int argc, char** argv) {
  return qel::tool::RunTool(argc, argv);
}
