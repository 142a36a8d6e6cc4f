#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kestrel {

/// Why a part has failed, once.
struct PartProblem {
  std::string sentence = {};
  bool wasKilled = false;  ///< from outside: it need not be the part's fault
};

/// A claim that somebody has laid to a part.
struct PartClaim {
  std::string token = {};  ///< tells it from all others
  std::string worker = {};
  std::string host = {};  ///< the machine, as long as it is not started again
  int64_t process = 0;
  int64_t started = 0;  ///< when that process began, in the machine's own count
};

/// What is where in the folder of a job, and the few steps on it that are atomic, also where the
/// folder lies on another machine (NFS).
///
/// - `parts/NAME.packets` appears by a rename, once it is whole and on the disk. That alone says
///   that a part is done.
/// - `claims/NAME` appears by a link, which exactly one worker gets to make. Claims save work;
///   where one is lost, a part is made twice, and the second replaces the first by the same.
/// - `problems/NAME-…` each tell of one failure.
///
/// All throw `Failure`.
class JobFolder {
 public:
  static constexpr int kMostFaults = 3;  ///< of a part, before it is poison
  static constexpr int kMostKills = 20;

  explicit JobFolder(std::string path) : path_(std::move(path)) {}

  std::string planPath() const { return in("plan.json"); }
  std::string partPath(const std::string& part) const { return in("parts/" + part + ".packets"); }

  /// Throws where the folder is not empty and what lies in it is no job's.
  void requireOwn() const;

  /// Makes the folders, in one that is empty, holds a job or what the removal of one has left.
  void begin() const;

  /// Writes a file that does not exist yet; it appears whole.
  void writeOnce(const std::string& name, const std::string& text) const;

  /// Removes what a job makes, where there is one, and the folder unless something else lies in it.
  /// Whenever that ends, it is known to the last what was done.
  void remove() const;

  /// Writes a file in place of an older one; it appears whole.
  void replace(const std::string& name, const std::string& text) const;

  bool isDone(const std::string& part) const;
  bool isAssembled() const;
  void markAssembled() const { writeOnce("assembled", "\n"); }
  void unmarkAssembled() const;

  /// Where a part is written until it is whole: another place in each call.
  std::string partialPath(const std::string& part) const;

  /// Gives a partial that is on the disk the name of its part.
  void commit(const std::string& partial, const std::string& part) const;

  /// Lays claim to a part; none where another has one that still holds. A claim is let go whose
  /// process is gone or that was not renewed for `lease` seconds, by the clock of whoever keeps the
  /// folder.
  std::optional<PartClaim> claim(const std::string& part, const std::string& worker,
                                 double lease) const;
  std::optional<PartClaim> claimOf(const std::string& part) const;
  void renew(const std::string& part, const PartClaim& own) const;
  void release(const std::string& part, const PartClaim& own) const;

  /// False where it cannot be written: then this object alone knows of it.
  bool addProblem(const std::string& part, const PartProblem& problem);
  std::vector<PartProblem> problemsOf(const std::string& part) const;
  bool isPoison(const std::string& part) const;

  /// Takes a part away that is damaged: it is to be made again. What it was stays in `partial`.
  void moveAside(const std::string& part) const;

  // Of the target, while it is written beside where it will be:

  /// Notes that it is written there by this process; removes what processes that are gone wrote.
  void noteTarget(const std::string& partial) const;
  void removeTargets() const;

  /// Notes that this is the whole. Whether a target is what was noted, told by the file itself:
  /// it has its name already.
  void noteWhole(const std::string& partial) const;
  bool isWhole(const std::string& target) const;

  /// Removes what workers that are gone have left of a part.
  void removePartials(const std::string& part) const;

 private:
  std::string in(const std::string& name) const { return path_ + "/" + name; }
  bool isOwn() const;
  void writeProblem(const std::string& part, const PartProblem& problem) const;
  std::string uniqueName() const;
  PartClaim ownClaim(const std::string& worker) const;
  int64_t now() const;
  bool isStale(const std::string& path, const PartClaim& claim, double lease) const;

  std::string path_;
  std::map<std::string, std::vector<PartProblem>> unwritten_ = {};
};

}  // namespace kestrel
