#include "framework/Mirra/internal/SharedTableMemory.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>

#include "framework/Kel/Exception.h"
#include "framework/Mirra/internal/GenerationCheck.h"
#include "framework/Mirra/internal/ProcessIdentity.h"
#include "framework/Mirra/internal/SegmentFiles.h"

namespace Mirra {
namespace internal {

namespace {

// A reader that finds the generation it was told of already unlinked looks again this often.
constexpr int kGenerationLookups = 1000;
// Generation names tried in a row before the writer gives up making one.
constexpr int kNameAttempts = 64;

// The whole of the lock: byte 0 of the lock segment.
struct flock wholeLock(short type) {
  struct flock lock;
  std::memset(&lock, 0, sizeof(lock));
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = 0;
  lock.l_len = 1;
  return lock;
}

bool statSegment(const std::string& segment, struct stat* status) {
  return stat(("/dev/shm/" + segment).c_str(), status) == 0;
}

// Generations created and not yet published, removed when the process that created them exits
// normally; the registry is never destroyed, so that a table written to during the exit finds it
// still there. A child forked meanwhile inherits the registry but removes nothing of its parent's.
class PreparedSegments {
 public:
  static PreparedSegments& instance() {
    static PreparedSegments* const segments = new PreparedSegments;
    return *segments;
  }
  void add(const std::string& path) {
    const std::lock_guard<std::mutex> guard(mutex_);
    paths_.emplace(path, getpid());
  }
  void remove(const std::string& path) {
    const std::lock_guard<std::mutex> guard(mutex_);
    paths_.erase(path);
  }

 private:
  PreparedSegments() { std::atexit(&PreparedSegments::removeAll); }
  static void removeAll() {
    PreparedSegments& segments = instance();
    const std::lock_guard<std::mutex> guard(segments.mutex_);
    for (const auto& [path, creator] : segments.paths_) {
      if (creator == getpid()) shm_unlink(path.c_str());
    }
    segments.paths_.clear();
  }

  std::mutex mutex_;
  std::map<std::string, pid_t> paths_;
};

}  // namespace

SharedTableMemory::SharedTableMemory(const std::string& name, AttachMode mode, TableShape shape,
                                     const AttachOptions& options)
    : name_(name), writer_(mode == AttachMode::singleWriter), options_(options) {
  generationWord_ = &noGeneration_;
  const std::string refusal = tableNameRefusal(name);
  if (!refusal.empty()) fail("attach", refusal);
  try {
    if (writer_) {
      attachAsWriter(shape);
    } else {
      attachAsReader(shape);
    }
  } catch (...) {
    release();
    throw;
  }
}

SharedTableMemory::~SharedTableMemory() { release(); }

void SharedTableMemory::release() {
  if (prepared_) {
    munmap(prepared_, preparedBytes_);
    const std::string path = generationPath(preparedGeneration_);
    shm_unlink(path.c_str());
    PreparedSegments::instance().remove(path);
  }
  if (writer_ && control_ && lockFd_ >= 0) controlWordIs(ControlWord::writerPid, 0);
  if (mapped_) munmap(mapped_, mappedBytes_);
  if (control_) munmap(control_, sizeof(ControlBlock));
  if (controlFd_ >= 0) close(controlFd_);
  if (lockFd_ >= 0) close(lockFd_);  // lets the writer lock go
  prepared_ = nullptr;
  mapped_ = nullptr;
  control_ = nullptr;
  controlFd_ = -1;
  lockFd_ = -1;
  generationWord_ = &noGeneration_;
}

// --- writer ---

void SharedTableMemory::attachAsWriter(TableShape shape) {
  if (!tableModeAllowed(options_.mode)) {
    fail("attach", "cannot be made with mode " + modeText(options_.mode) +
                       ": the owner reads and writes, group and others may at most read (0600, "
                       "0640, 0604 or 0644)");
  }
  lockForWriting();
  const std::uint64_t published = openControlForWriting(shape);
  removeStaleGenerations(published);
  if (published != 0) mapPublished(published);
  const ProcessIdentity self = thisProcess();
  controlWordIs(ControlWord::writerPid, static_cast<std::uint64_t>(self.pid));
  controlWordIs(ControlWord::writerStarted, self.started);
  generationWord_ = &own_.published;
}

int SharedTableMemory::openOwnSegment(const std::string& segment, mode_t mode, mode_t forbidden,
                                      bool* created) {
  const std::string path = segmentPath(segment);
  int fd = shm_open(path.c_str(), O_RDWR | O_CREAT | O_EXCL, mode);
  if (fd >= 0) {
    *created = true;
    // Exactly the mode asked for, whatever the process's umask takes away.
    if (fchmod(fd, mode) != 0) {
      close(fd);
      failCall("attach", "cannot make segment " + segment, "fchmod");
    }
    return fd;
  }
  *created = false;
  if (errno != EEXIST) failCall("attach", "cannot create segment " + segment, "shm_open");
  struct stat status;
  fd = openExisting(segment, mode, forbidden, &status);
  if (fd < 0) failCall("attach", "cannot open segment " + segment, "shm_open");
  return fd;
}

int SharedTableMemory::openExisting(const std::string& segment, mode_t mode, mode_t forbidden,
                                    struct stat* status) {
  const int fd = shm_open(segmentPath(segment).c_str(), O_RDWR, 0);
  if (fd < 0) {
    const int error = errno;
    if (error == EACCES && statSegment(segment, status)) {
      const std::string refusal = writerRefusal(*status, segment, forbidden);
      if (!refusal.empty()) fail("attach", refusal);
    }
    errno = error;
    return -1;
  }
  if (fstat(fd, status) != 0) {
    close(fd);
    failCall("attach", "cannot open segment " + segment, "fstat");
  }
  const std::string refusal = writerRefusal(*status, segment, forbidden);
  if (!refusal.empty()) {
    close(fd);
    fail("attach", refusal);
  }
  // Every segment of the table gets the mode of this writer, not only those it creates: a table
  // one run made for its owner alone does not leak through the generations of the next.
  if ((status->st_mode & 07777) != mode && fchmod(fd, mode) != 0) {
    close(fd);
    failCall("attach", "cannot set the mode of segment " + segment, "fchmod");
  }
  return fd;
}

std::string SharedTableMemory::writerRefusal(const struct stat& status, const std::string& segment,
                                             mode_t forbidden) const {
  if (status.st_uid != geteuid()) {
    return "cannot be written: segment " + segment + " belongs to " + userText(status.st_uid) +
           ", not to this writer's user " + userText(geteuid());
  }
  if ((status.st_mode & forbidden) != 0) {
    return "cannot be written: segment " + segment +
           ((forbidden & 044) != 0 ? " can be opened by group or others (mode "
                                   : " is writable by group or others (mode ") +
           modeText(status.st_mode) + ")";
  }
  return "";
}

void SharedTableMemory::lockForWriting() {
  bool created = false;
  lockFd_ = openOwnSegment(lockSegment(name_), 0600, 077, &created);
  struct flock lock = wholeLock(F_WRLCK);
  if (fcntl(lockFd_, F_OFD_SETLK, &lock) != 0) {
    if (errno == EAGAIN || errno == EACCES) fail("attach", "already has a writer");
    failCall("attach", "cannot be locked", "fcntl");
  }
}

std::uint64_t SharedTableMemory::openControlForWriting(TableShape shape) {
  bool created = false;
  controlFd_ = openOwnSegment(name_, options_.mode, 022, &created);
  struct stat status;
  if (fstat(controlFd_, &status) != 0) {
    failCall("attach", "cannot read its control segment", "fstat");
  }
  const auto bytes = static_cast<std::size_t>(status.st_size);
  refuseFormerFormat(bytes);
  if (bytes != sizeof(ControlBlock)) {
    if (ftruncate(controlFd_, 0) != 0 || ftruncate(controlFd_, sizeof(ControlBlock)) != 0) {
      failCall("attach", "cannot size its control segment", "ftruncate");
    }
  }
  void* at = mmap(nullptr, sizeof(ControlBlock), PROT_READ | PROT_WRITE, MAP_SHARED, controlFd_, 0);
  if (at == MAP_FAILED) failCall("attach", "cannot map its control segment", "mmap");
  control_ = static_cast<ControlBlock*>(at);
  if (created) {
    controlIs(shape);
    return 0;
  }
  // Empty: left by a writer that died before it could fill it.
  if (bytes == 0) return controlRebuilt(shape, "");
  if (bytes != sizeof(ControlBlock)) {
    return controlRebuilt(shape, "its size, " + std::to_string(bytes) + " bytes");
  }
  ControlFixed fixed;
  const bool fixedIntact = loadControlFixed(*control_, &fixed);
  std::uint64_t published = 0;
  const bool publishedIntact = loadControlWord(*control_, ControlWord::published, &published);
  if (fixedIntact && fixed.magic == kControlMagic) {
    const std::string refusal = shapeRefusal(fixed, shape);
    if (!refusal.empty()) fail("attach", refusal);
    if (publishedIntact) {
      // Sound: taken as it is, so that readers attached to it see no change.
      std::memcpy(&own_, control_, sizeof(own_));
      return published;
    }
  }
  // Left by a writer that died before it wrote the magic.
  if (!fixedIntact && fixed.magic == 0 && !publishedIntact) return controlRebuilt(shape, "");
  return controlRebuilt(shape, fixedIntact && fixed.magic == kControlMagic
                                   ? "its published generation"
                                   : "its fixed part");
}

std::uint64_t SharedTableMemory::controlRebuilt(TableShape shape, const std::string& damaged) {
  controlIs(shape);
  const std::uint64_t recovered = recoveredGeneration(shape);
  controlWordIs(ControlWord::published, recovered);
  // Unfilled, with no generation beside it: its writer died before it published any.
  if (damaged.empty() && recovered == 0) return 0;
  findings_.push_back(
      "the control segment " +
      (damaged.empty() ? std::string("was left unfilled") : "fails its check (" + damaged + ")") +
      "; " +
      (recovered != 0 ? "generation " + generationSegment(name_, recovered) + " taken up instead"
                      : std::string("no published generation found: the table starts afresh")));
  return recovered;
}

// Writes the whole control segment anew for a table of `shape` with no generation published and
// no writer; the magic goes last, with release, so that a reader never sees it half made.
void SharedTableMemory::controlIs(TableShape shape) {
  own_ = ControlBlock{};
  own_.fixed =
      ControlFixed{kControlMagic, kControlFormat, shape.keySize, shape.valueSize, shape.slotSize};
  own_.fixedCheck = controlFixedCheckOf(own_.fixed);
  own_.published = controlWordImage(ControlWord::published, 0);
  own_.writerPid = controlWordImage(ControlWord::writerPid, 0);
  own_.writerStarted = controlWordImage(ControlWord::writerStarted, 0);
  ControlFixed withoutMagic = own_.fixed;
  withoutMagic.magic = 0;
  std::memcpy(&control_->fixed, &withoutMagic, sizeof(withoutMagic));
  std::memcpy(&control_->fixedCheck, &own_.fixedCheck, sizeof(own_.fixedCheck));
  storeRelaxed(&control_->published, own_.published);
  storeRelaxed(&control_->writerPid, own_.writerPid);
  storeRelaxed(&control_->writerStarted, own_.writerStarted);
  storeRelaxed(&control_->reserved, 0);
  storeRelease(&control_->fixed.magic, kControlMagic);
}

void SharedTableMemory::controlWordIs(ControlWord word, std::uint64_t value) {
  const std::uint64_t image = controlWordImage(word, value);
  *controlWordAt(own_, word) = image;
  storeRelease(controlWordAt(*control_, word), image);
}

// The newest generation of this table that this user owns, whose header checks out for `shape`
// and says it was published.
std::uint64_t SharedTableMemory::recoveredGeneration(TableShape shape) const {
  std::vector<std::string> segments;
  std::string why;
  if (!segmentsOf(name_, &segments, &why)) return 0;
  std::vector<std::uint64_t> generations;
  for (const std::string& segment : segments) {
    std::uint64_t generation = 0;
    if (generationOf(name_, segment, &generation)) generations.push_back(generation);
  }
  std::sort(generations.rbegin(), generations.rend());
  for (const std::uint64_t generation : generations) {
    const int fd = shm_open(generationPath(generation).c_str(), O_RDONLY, 0);
    if (fd < 0) continue;
    struct stat status;
    const bool usable = fstat(fd, &status) == 0 && status.st_uid == geteuid() &&
                        static_cast<std::size_t>(status.st_size) >= sizeof(TableHeader);
    void* at = usable ? mmap(nullptr, sizeof(TableHeader), PROT_READ, MAP_SHARED, fd, 0) : nullptr;
    close(fd);
    if (at == nullptr || at == MAP_FAILED) continue;
    const auto* header = static_cast<const TableHeader*>(at);
    std::uint64_t check = 0;
    const FixedPart fixed = fixedPartOf(*header, &check);
    std::uint64_t published = 0;
    const bool taken = fixedPartSound(fixed, check, shape) &&
                       loadHeaderWord(*header, HeaderWord::published, &published) && published == 1;
    munmap(at, sizeof(TableHeader));
    if (taken) return generation;
  }
  return 0;
}

// Every generation but `kept` that this user owns goes; those of other users stay where they are,
// and no new generation takes the name of any.
void SharedTableMemory::removeStaleGenerations(std::uint64_t kept) {
  nextGeneration_ = kept + 1;
  std::vector<std::string> segments;
  std::string why;
  if (!segmentsOf(name_, &segments, &why)) return;
  for (const std::string& segment : segments) {
    std::uint64_t generation = 0;
    if (!generationOf(name_, segment, &generation)) continue;
    nextGeneration_ = std::max(nextGeneration_, generation + 1);
    struct stat status;
    if (generation == kept || !statSegment(segment, &status) || status.st_uid != geteuid()) {
      continue;
    }
    shm_unlink(segmentPath(segment).c_str());
  }
}

void SharedTableMemory::mapPublished(std::uint64_t generation) {
  const std::string segment = generationSegment(name_, generation);
  struct stat status;
  const int fd = openExisting(segment, options_.mode, 022, &status);
  if (fd < 0 && errno == ENOENT) {
    findings_.push_back("its published generation " + segment +
                        " is missing: the table starts afresh and its members are lost");
    return;
  }
  if (fd < 0) failCall("attach", "cannot open generation " + segment, "shm_open");
  const auto bytes = static_cast<std::size_t>(status.st_size);
  void* at =
      bytes == 0 ? MAP_FAILED : mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  close(fd);
  if (at == MAP_FAILED) {
    findings_.push_back("its published generation " + segment +
                        " cannot be mapped: the table starts afresh and its members are lost");
    return;
  }
  mapped_ = static_cast<unsigned char*>(at);
  mappedBytes_ = bytes;
  mappedGeneration_ = generation;
}

std::vector<std::string> SharedTableMemory::takeAttachFindings() {
  std::vector<std::string> findings;
  findings.swap(findings_);
  return findings;
}

bool SharedTableMemory::strayed() const {
  if (!writer_ || !control_) return false;
  // The fixed part, its check and the three words the writer keeps (not the reserved word).
  return std::memcmp(control_, &own_, offsetof(ControlBlock, reserved)) != 0;
}

std::string SharedTableMemory::mend() {
  if (!writer_ || !control_) return "";
  std::string mended;
  const auto note = [&mended](const std::string& part) {
    mended += (mended.empty() ? "its " : ", its ") + part;
  };
  if (std::memcmp(&control_->fixed, &own_.fixed, sizeof(own_.fixed)) != 0 ||
      std::memcmp(&control_->fixedCheck, &own_.fixedCheck, sizeof(own_.fixedCheck)) != 0) {
    std::memcpy(&control_->fixed, &own_.fixed, sizeof(own_.fixed));
    std::memcpy(&control_->fixedCheck, &own_.fixedCheck, sizeof(own_.fixedCheck));
    note("fixed part");
  }
  const struct {
    ControlWord word;
    const char* name;
  } words[] = {{ControlWord::published, "published generation"},
               {ControlWord::writerPid, "writer"},
               {ControlWord::writerStarted, "writer's start"}};
  for (const auto& word : words) {
    const std::uint64_t own = *controlWordAt(own_, word.word);
    if (loadRelaxed(controlWordAt(*control_, word.word)) == own) continue;
    storeRelease(controlWordAt(*control_, word.word), own);
    note(word.name);
  }
  if (mended.empty()) return "";
  return "the control segment fails its check (" + mended + "); its writer has put it back";
}

unsigned char* SharedTableMemory::prepare(std::size_t bytes, const char* operation) {
  // A generation given up before it was published.
  if (prepared_) {
    retired_.add(prepared_, preparedBytes_);
    const std::string path = generationPath(preparedGeneration_);
    shm_unlink(path.c_str());
    PreparedSegments::instance().remove(path);
    prepared_ = nullptr;
  }
  const std::uint64_t first = nextGeneration_;
  for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
    const std::uint64_t generation = nextGeneration_++;
    const std::string segment = generationSegment(name_, generation);
    const std::string path = segmentPath(segment);
    const int fd = shm_open(path.c_str(), O_RDWR | O_CREAT | O_EXCL, options_.mode);
    if (fd < 0 && errno == EEXIST) continue;  // someone else's name: the next one
    if (fd < 0) failCall(operation, "cannot create generation " + segment, "shm_open");
    PreparedSegments::instance().add(path);
    const char* failed = fchmod(fd, options_.mode) != 0                  ? "fchmod"
                         : ftruncate(fd, static_cast<off_t>(bytes)) != 0 ? "ftruncate"
                                                                         : nullptr;
    void* at =
        failed ? MAP_FAILED : mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (!failed && at == MAP_FAILED) failed = "mmap";
    const int error = errno;
    close(fd);
    if (failed) {
      shm_unlink(path.c_str());
      PreparedSegments::instance().remove(path);
      errno = error;
      failCall(operation, "cannot create generation " + segment, failed);
    }
    prepared_ = static_cast<unsigned char*>(at);
    preparedBytes_ = bytes;
    preparedGeneration_ = generation;
    return prepared_;
  }
  fail(operation, "cannot create a new generation: the " + std::to_string(kNameAttempts) +
                      " names from " + generationSegment(name_, first) + " on are all taken");
}

std::string SharedTableMemory::publish() {
  const std::uint64_t old = mappedGeneration_;
  controlWordIs(ControlWord::published, preparedGeneration_);
  if (mapped_) retired_.add(mapped_, mappedBytes_);
  mapped_ = prepared_;
  mappedBytes_ = preparedBytes_;
  mappedGeneration_ = preparedGeneration_;
  prepared_ = nullptr;
  PreparedSegments::instance().remove(generationPath(mappedGeneration_));
  if (publishedHook) publishedHook();
  if (old == 0 || shm_unlink(generationPath(old).c_str()) == 0 || errno == ENOENT) return "";
  return "MirraMap::publish() table " + name_ + " cannot remove its former generation " +
         generationSegment(name_, old) + ": " + std::strerror(errno);
}

// --- reader ---

void SharedTableMemory::attachAsReader(TableShape shape) {
  controlFd_ = shm_open(segmentPath(name_).c_str(), O_RDONLY, 0);
  if (controlFd_ < 0 && errno == ENOENT) fail("attach", "does not exist");
  if (controlFd_ < 0) failCall("attach", "cannot be attached", "shm_open");
  // Only the writer's own user (and root) can open the lock; it is only ever asked about, never
  // taken (writerState()).
  lockFd_ = shm_open(segmentPath(lockSegment(name_)).c_str(), O_RDONLY, 0);
  struct stat status;
  if (fstat(controlFd_, &status) != 0) failCall("attach", "cannot be attached", "fstat");
  owner_ = status.st_uid;
  const bool trusted = owner_ == 0 || owner_ == geteuid() ||
                       (options_.trustedOwner && owner_ == *options_.trustedOwner);
  if (!trusted) {
    fail("attach", "belongs to " + userText(owner_) +
                       ", not to root, this reader's user or a user it is told to trust");
  }
  if ((status.st_mode & 022) != 0) {
    fail("attach", "is writable by group or others (mode " + modeText(status.st_mode) +
                       "): a reader does not trust it");
  }
  const auto bytes = static_cast<std::size_t>(status.st_size);
  if (bytes == 0) fail("attach", "is not created yet");
  refuseFormerFormat(bytes);
  if (bytes != sizeof(ControlBlock)) {
    controlDamage_ =
        "the control segment fails its check (its size, " + std::to_string(bytes) + " bytes)";
    return;
  }
  void* at = mmap(nullptr, sizeof(ControlBlock), PROT_READ, MAP_SHARED, controlFd_, 0);
  if (at == MAP_FAILED) failCall("attach", "cannot be attached", "mmap");
  control_ = static_cast<ControlBlock*>(at);
  generationWord_ = &control_->published;
  ControlFixed fixed;
  if (!loadControlFixed(*control_, &fixed)) {
    if (fixed.magic == 0 && loadAcquire(&control_->published) == 0) {
      fail("attach", "is not created yet");
    }
    controlDamage_ = "the control segment fails its check (its fixed part)";
    return;
  }
  if (fixed.magic != kControlMagic) fail("attach", "is not a table");
  const std::string refusal = shapeRefusal(fixed, shape);
  if (!refusal.empty()) fail("attach", refusal);
  std::uint64_t published = 0;
  if (!loadControlWord(*control_, ControlWord::published, &published)) {
    controlDamage_ = "the control segment fails its check (its published generation)";
    return;
  }
  if (published == 0) fail("attach", "is not created yet");
}

Mapping SharedTableMemory::current(std::uint64_t* generation) {
  if (writer_) {
    *generation = loadRelaxed(generationWord_);
    return Mapping{mapped_, mappedBytes_};
  }
  if (!controlDamage_.empty()) throw MemoryDamage(controlDamage_);
  for (int lookup = 0; lookup < kGenerationLookups; ++lookup) {
    const std::uint64_t word = loadAcquire(&control_->published);
    *generation = word;
    if (mapped_ && word == mappedWord_) return Mapping{mapped_, mappedBytes_};
    std::uint64_t number = 0;
    if (!checkedValue(word, controlWordPosition(ControlWord::published), &number)) {
      throw MemoryDamage("the control segment fails its check (its published generation)");
    }
    if (number == 0) throw MemoryDamage("the control segment names no published generation");
    const Mapping mapping = mapForReading(word, number);
    if (mapping.base) return mapping;
    sched_yield();  // the writer moved on since we looked; look again
  }
  throw MemoryDamage("moved to a new generation " + std::to_string(kGenerationLookups) +
                     " times while this reader attached it");
}

// The generation `generation`, published as `word`, mapped; no mapping when it went because the
// writer has published another one since.
Mapping SharedTableMemory::mapForReading(std::uint64_t word, std::uint64_t generation) {
  const std::string segment = generationSegment(name_, generation);
  const int fd = shm_open(segmentPath(segment).c_str(), O_RDONLY, 0);
  if (fd < 0 && errno == ENOENT) {
    if (loadAcquire(&control_->published) != word) return Mapping{};
    throw MemoryDamage("its published generation " + segment + " is missing");
  }
  if (fd < 0) {
    throw MemoryDamage("its published generation " + segment +
                       " cannot be opened: shm_open: " + std::strerror(errno));
  }
  struct stat status;
  if (fstat(fd, &status) != 0) {
    const int error = errno;
    close(fd);
    throw MemoryDamage("its published generation " + segment +
                       " cannot be opened: fstat: " + std::strerror(error));
  }
  const auto bytes = static_cast<std::size_t>(status.st_size);
  std::string wrong;
  if (status.st_uid != owner_) {
    wrong =
        "belongs to " + userText(status.st_uid) + ", not to the table's owner " + userText(owner_);
  } else if ((status.st_mode & 022) != 0) {
    wrong = "is writable by group or others (mode " + modeText(status.st_mode) + ")";
  } else if (bytes == 0) {
    wrong = "is empty";
  }
  void* at = wrong.empty() ? mmap(nullptr, bytes, PROT_READ, MAP_SHARED, fd, 0) : MAP_FAILED;
  const int error = errno;
  close(fd);
  if (!wrong.empty()) throw MemoryDamage("its published generation " + segment + " " + wrong);
  if (at == MAP_FAILED) {
    throw MemoryDamage("its published generation " + segment +
                       " cannot be mapped: mmap: " + std::strerror(error));
  }
  if (mapped_) munmap(mapped_, mappedBytes_);
  mapped_ = static_cast<unsigned char*>(at);
  mappedBytes_ = bytes;
  mappedGeneration_ = generation;
  mappedWord_ = word;
  return Mapping{mapped_, mappedBytes_};
}

WriterState SharedTableMemory::writerState() const {
  if (writer_) return WriterState{};
  std::uint64_t pid = 0;
  std::uint64_t started = 0;
  const bool identified = control_ && loadControlWord(*control_, ControlWord::writerPid, &pid) &&
                          loadControlWord(*control_, ControlWord::writerStarted, &started);
  WriterState state = identified ? writerStateOf(ProcessIdentity{static_cast<long>(pid), started})
                                 : WriterState{WriterState::Kind::gone, 0};
  // The lock tells for certain whether a writer holds the table, also when its process is not
  // visible from here (another process id namespace); only the process tells whether it is
  // stopped.
  if (lockFd_ < 0) return state;
  struct flock lock = wholeLock(F_WRLCK);
  if (fcntl(lockFd_, F_OFD_GETLK, &lock) != 0) return state;
  if (lock.l_type == F_UNLCK) return WriterState{WriterState::Kind::gone, state.pid};
  if (!state.alive()) state.kind = WriterState::Kind::running;
  return state;
}

// --- removal ---

UnlinkReport SharedTableMemory::unlink(const std::string& name) {
  UnlinkReport report;
  const std::string refusal = tableNameRefusal(name);
  if (!refusal.empty()) {
    report.failures.push_back(name + ": " + refusal);
    return report;
  }
  std::vector<std::string> segments;
  std::string why;
  if (!segmentsOf(name, &segments, &why)) {
    report.failures.push_back(name + ": " + why);
    segments = {name, lockSegment(name)};
  }
  for (const std::string& segment : segments) {
    if (shm_unlink(("/" + segment).c_str()) == 0) {
      report.removed.push_back(segment);
    } else if (errno != ENOENT) {
      report.failures.push_back(segment + ": " + std::strerror(errno));
    }
  }
  return report;
}

// --- texts ---

void SharedTableMemory::refuseFormerFormat(std::size_t bytes) const {
  if (bytes != kFormerControlBytes) return;
  ControlFixed former{};
  if (pread(controlFd_, &former, sizeof(former), 0) == static_cast<ssize_t>(sizeof(former)) &&
      former.magic == kControlMagic && former.format == kFormerControlFormat) {
    fail("attach", "has the former format " + std::to_string(kFormerControlFormat) +
                       " of shared tables (this build reads format " +
                       std::to_string(kControlFormat) + "): remove it to start it afresh");
  }
}

std::string SharedTableMemory::generationPath(std::uint64_t generation) const {
  return segmentPath(generationSegment(name_, generation));
}

std::string SharedTableMemory::shapeRefusal(const ControlFixed& fixed, TableShape shape) const {
  if (fixed.format == kControlFormat && fixed.keySize == shape.keySize &&
      fixed.valueSize == shape.valueSize && fixed.slotSize == shape.slotSize) {
    return "";
  }
  return "holds keys of " + std::to_string(fixed.keySize) + " bytes, values of " +
         std::to_string(fixed.valueSize) + " bytes in slots of " + std::to_string(fixed.slotSize) +
         " bytes (format " + std::to_string(fixed.format) + "); expected " +
         std::to_string(shape.keySize) + ", " + std::to_string(shape.valueSize) + ", " +
         std::to_string(shape.slotSize) + " (format " + std::to_string(kControlFormat) + ")";
}

void SharedTableMemory::fail(const std::string& operation, const std::string& reason) const {
  throw Kel::RangeException("MirraMap::" + operation + "() table " + name_ + " " + reason);
}

void SharedTableMemory::failCall(const std::string& operation, const std::string& what,
                                 const std::string& call) const {
  fail(operation, what + ": " + call + ": " + std::strerror(errno));
}

void systemLog(bool problem, const std::string& message) {
  syslog(LOG_USER | (problem ? LOG_ERR : LOG_INFO), "%s", message.c_str());
}

}  // namespace internal
}  // namespace Mirra
