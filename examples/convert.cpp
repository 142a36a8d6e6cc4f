#include <kestrel/convert.h>
#include <iostream>

int main(int, char** arguments) {
  kestrel::ConversionSettings settings{.input = arguments[1], .output = arguments[2]};
  settings.look.crop = kestrel::Area{0, 60, 320, 120};
  settings.look.subtitles = arguments[3];
  kestrel::Events events;
  events.progress = [](const kestrel::Progress& progress) { std::cerr << '\r' << progress.time; };
  try {
    return kestrel::Conversion(settings).run(events).isWhole() ? 0 : 3;
  } catch (const kestrel::Failure& failure) {
    std::cerr << failure.what() << '\n';
    return 1;
  }
}
