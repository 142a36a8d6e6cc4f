#pragma once

#include <kestrel/Export.h>

#include <stdexcept>
#include <string>

namespace kestrel {

/// What the convert tier throws when a call cannot do what it was asked for. (The engine below it
/// throws nothing: its classes answer false, null or silence.)
///
/// `what()` is one sentence without a full stop that names the file or setting it is about, such as
/// "cannot open 'x.mp4': No such file or directory".
class KESTREL_API Failure : public std::runtime_error {
 public:
  enum class Kind {
    kSettings,     ///< the settings contradict each other, or do not fit the input
    kInput,        ///< an input cannot be opened or read, or has nothing of what is asked for
    kOutput,       ///< the target cannot be written, or cannot hold what was meant for it
    kExists,       ///< there is a file at the target already, and it may not be replaced
    kInterrupted,  ///< the host's `Events::interrupt` said so
  };

  /// `subject`: what it is about: a file's path, or for `kSettings` the name of the setting.
  Failure(Kind kind, const std::string& sentence, std::string subject = {});
  ~Failure() override;

  Kind kind() const { return kind_; }
  const std::string& subject() const { return subject_; }

  // The usual ones, in short.

  static Failure settings(const std::string& sentence, std::string subject = {});
  static Failure input(const std::string& path, const std::string& sentence);
  static Failure output(const std::string& path, const std::string& sentence);
  static Failure interrupted();

 private:
  Kind kind_;
  std::string subject_;
};

}  // namespace kestrel
