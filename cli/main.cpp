#include <cstdio>

int main() {
  std::fputs("usage: rova [--state FILE] COMMAND...\n", stdout);
  return 0;
}
