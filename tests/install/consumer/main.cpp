#include <kestrel/kestrel.h>

#include <iostream>

int main() {
  // Front left and front right: bits 0 and 1.
  const bool right = kestrel::lm_get_channel_layout_by_name("stereo") == 3;
  std::cout << (right ? "stereo is 3" : "stereo is not 3") << '\n';
  return right ? 0 : 1;
}
