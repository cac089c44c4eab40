// riverles-case: writes a case file from a plain-text description.
#include <cstdio>

int main() {
  std::fprintf(stderr, "riverles-case: not yet available\n");
  return 1;
}
