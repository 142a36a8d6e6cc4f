#include <kestrel/AudioDevice.h>

#include <SDL.h>
#include <dlfcn.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <string_view>
#include <utility>

#include "platform/process/LoadedLibrary.h"

namespace kestrel {

namespace {

constexpr Uint16 kPeriodFrames = 512;
constexpr int kMostChannels = 8;

/// SDL's calls.
struct Sdl {
  decltype(&SDL_InitSubSystem) initSubSystem = nullptr;
  decltype(&SDL_QuitSubSystem) quitSubSystem = nullptr;
  decltype(&SDL_SetHint) setHint = nullptr;
  decltype(&SDL_OpenAudioDevice) openDevice = nullptr;
  decltype(&SDL_PauseAudioDevice) pauseDevice = nullptr;
  decltype(&SDL_CloseAudioDevice) closeDevice = nullptr;
  decltype(&SDL_GetCurrentAudioDriver) currentDriver = nullptr;
  decltype(&SDL_LogSetPriority) setLogPriority = nullptr;
  bool isWhole = false;

  Sdl() {
    LoadedLibrary library("libSDL2-2.0.so.0");
    library.find(initSubSystem, "SDL_InitSubSystem");
    library.find(quitSubSystem, "SDL_QuitSubSystem");
    library.find(setHint, "SDL_SetHint");
    library.find(openDevice, "SDL_OpenAudioDevice");
    library.find(pauseDevice, "SDL_PauseAudioDevice");
    library.find(closeDevice, "SDL_CloseAudioDevice");
    library.find(currentDriver, "SDL_GetCurrentAudioDriver");
    library.find(setLogPriority, "SDL_LogSetPriority");
    isWhole = library.isWhole();
  }
};

/// SDL, loaded when it is first needed, or null where it is not installed.
const Sdl* sdl() {
  static const Sdl library;
  return library.isWhole ? &library : nullptr;
}

/// SDL starts and ends its parts without a lock.
std::mutex& sdlLock() {
  static auto& lock = *new std::mutex;
  return lock;
}

void dropMessage(const char*, int, const char*, int, const char*, ...) {}

/// While it lives, ALSA keeps what it thinks of a machine without a sound card to itself.
class QuietAlsa {
 public:
  QuietAlsa() {
    void* library = dlopen("libasound.so.2", RTLD_LAZY | RTLD_NOLOAD);
    if (!library) return;
    setHandler_ = reinterpret_cast<SetHandler>(dlsym(library, "snd_lib_error_set_handler"));
    dlclose(library);  // SDL holds it, too
    if (setHandler_) setHandler_(dropMessage);
  }
  ~QuietAlsa() {
    if (setHandler_) setHandler_(nullptr);
  }
  QuietAlsa(const QuietAlsa&) = delete;
  QuietAlsa& operator=(const QuietAlsa&) = delete;

 private:
  using Handler = void (*)(const char*, int, const char*, int, const char*, ...);
  using SetHandler = int (*)(Handler);

  SetHandler setHandler_ = nullptr;
};

class SdlAudioDevice : public AudioDevice {
 public:
  ~SdlAudioDevice() override { closeDevice(); }

  bool open(Fill fill) override {
    if (isOpen()) return true;
    const std::lock_guard guard(sdlLock());
    const Sdl* library = sdl();
    if (!library) return false;
    library->setHint(SDL_HINT_NO_SIGNAL_HANDLERS, "1");  // signals are the host's
    library->setLogPriority(SDL_LOG_CATEGORY_AUDIO, SDL_NUM_LOG_PRIORITIES);
    const QuietAlsa quiet;
    if (library->initSubSystem(SDL_INIT_AUDIO) != 0) return false;
    fill_ = std::move(fill);
    if (openDevice(*library)) return true;
    library->quitSubSystem(SDL_INIT_AUDIO);
    fill_ = nullptr;
    return false;
  }

  void close() override { closeDevice(); }

  bool isOpen() const override { return device_ != 0; }
  Format format() const override { return format_; }

  void start() override {
    if (isOpen()) sdl()->pauseDevice(device_, 0);
  }

  void stop() override {
    if (isOpen()) sdl()->pauseDevice(device_, 1);  // waits for a call in progress
  }

  int64_t now() const override {
    using std::chrono::steady_clock;
    return std::chrono::nanoseconds(steady_clock::now().time_since_epoch()).count();
  }

  int32_t latency() const override { return latency_; }

 private:
  bool openDevice(const Sdl& library) {
    SDL_AudioSpec wanted{};
    wanted.freq = Format{}.sampleRate;
    wanted.format = AUDIO_F32SYS;
    wanted.channels = static_cast<Uint8>(Format{}.channels);
    wanted.samples = kPeriodFrames;
    wanted.userdata = this;
    wanted.callback = [](void* self, Uint8* data, int size) {
      auto& device = *static_cast<SdlAudioDevice*>(self);
      const auto frameBytes = static_cast<int>(sizeof(float)) * device.format_.channels;
      device.fill_(reinterpret_cast<float*>(data), size / frameBytes);
    };
    SDL_AudioSpec given{};
    device_ =
        library.openDevice(nullptr, 0, &wanted, &given,
                           SDL_AUDIO_ALLOW_FREQUENCY_CHANGE | SDL_AUDIO_ALLOW_CHANNELS_CHANGE);
    if (device_ == 0) return false;
    format_ = {given.freq, given.channels};
    // A device plays one period while it is given the next; what only writes or drops plays none.
    const std::string_view driver = library.currentDriver() ? library.currentDriver() : "";
    latency_ = driver == "disk" || driver == "dummy" ? 0 : given.samples;
    if (given.channels <= kMostChannels) return true;
    library.closeDevice(device_);
    device_ = 0;
    return false;
  }

  void closeDevice() {
    if (!isOpen()) return;
    const std::lock_guard guard(sdlLock());
    sdl()->closeDevice(device_);
    sdl()->quitSubSystem(SDL_INIT_AUDIO);
    device_ = 0;
    fill_ = nullptr;
  }

  Fill fill_;
  SDL_AudioDeviceID device_ = 0;
  Format format_;
  int32_t latency_ = 0;
};

}  // namespace

std::shared_ptr<AudioDevice> makeDefaultAudioDevice() { return std::make_shared<SdlAudioDevice>(); }

}  // namespace kestrel
