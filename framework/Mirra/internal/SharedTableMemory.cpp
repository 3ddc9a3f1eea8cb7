#include "framework/Mirra/internal/SharedTableMemory.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "framework/Kel/Exception.h"

namespace Mirra {
namespace internal {

namespace {

constexpr std::uint64_t kControlMagic = 0x6c7274436172694dull;  // "MiraCtrl" read little-endian
constexpr std::uint32_t kControlFormat = 1;
// A reader that finds the generation it was told of already unlinked looks again this often.
constexpr int kGenerationLookups = 1000;

bool plainName(const std::string& name) {
  if (name.empty() || name.size() > 200) return false;
  for (const char c : name) {
    const bool allowed = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                         (c >= '0' && c <= '9') || c == '.' || c == '_' || c == '-';
    if (!allowed) return false;
  }
  return name[0] != '.';
}

// The whole of the lock: byte 0 of the control segment.
struct flock wholeLock(short type) {
  struct flock lock;
  std::memset(&lock, 0, sizeof(lock));
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = 0;
  lock.l_len = 1;
  return lock;
}

}  // namespace

// The control segment's only content.
struct SharedTableMemory::Control {
  std::uint64_t magic;  // written last, with release, by the writer that creates the table
  std::uint32_t format;
  std::uint32_t keySize;
  std::uint32_t valueSize;
  std::uint32_t slotSize;
  std::uint64_t generation;  // 0 until the first data segment is published
};

SharedTableMemory::SharedTableMemory(const std::string& name, bool writer, TableShape shape)
    : name_(name), path_("/" + name), writer_(writer) {
  if (!plainName(name)) fail("is not a plain name (letters, digits, '.', '_', '-')");
  try {
    openControl(shape);
    generationWord_ = &control_->generation;
    if (!writer_ && loadAcquire(&control_->generation) == 0) fail("is not created yet");
  } catch (...) {
    release();
    throw;
  }
}

SharedTableMemory::~SharedTableMemory() { release(); }

void SharedTableMemory::release() {
  if (prepared_) {
    munmap(prepared_, preparedBytes_);
    shm_unlink(dataPath(loadRelaxed(&control_->generation) + 1).c_str());
  }
  if (mapped_) munmap(mapped_, mappedBytes_);
  if (control_) munmap(control_, sizeof(Control));
  if (controlFd_ >= 0) close(controlFd_);  // lets the writer lock go
  prepared_ = nullptr;
  mapped_ = nullptr;
  control_ = nullptr;
  controlFd_ = -1;
}

void SharedTableMemory::openControl(TableShape shape) {
  controlFd_ = shm_open(path_.c_str(), writer_ ? O_RDWR | O_CREAT : O_RDONLY, 0644);
  if (controlFd_ < 0 && errno == ENOENT) fail("does not exist");
  if (controlFd_ < 0) failSystem("shm_open");
  fcntl(controlFd_, F_SETFD, FD_CLOEXEC);
  if (writer_) {
    struct flock lock = wholeLock(F_WRLCK);
    if (fcntl(controlFd_, F_OFD_SETLK, &lock) != 0) {
      if (errno == EAGAIN || errno == EACCES) fail("already has a writer");
      failSystem("fcntl");
    }
  }
  struct stat status;
  if (fstat(controlFd_, &status) != 0) failSystem("fstat");
  if (static_cast<std::size_t>(status.st_size) < sizeof(Control)) {
    if (!writer_) fail("is not created yet");
    createControl(shape);
    return;
  }
  void* at = mmap(nullptr, sizeof(Control), writer_ ? PROT_READ | PROT_WRITE : PROT_READ,
                  MAP_SHARED, controlFd_, 0);
  if (at == MAP_FAILED) failSystem("mmap");
  control_ = static_cast<Control*>(at);
  checkControl(shape);
}

void SharedTableMemory::createControl(TableShape shape) {
  if (ftruncate(controlFd_, sizeof(Control)) != 0) failSystem("ftruncate");
  void* at = mmap(nullptr, sizeof(Control), PROT_READ | PROT_WRITE, MAP_SHARED, controlFd_, 0);
  if (at == MAP_FAILED) failSystem("mmap");
  control_ = static_cast<Control*>(at);
  control_->format = kControlFormat;
  control_->keySize = shape.keySize;
  control_->valueSize = shape.valueSize;
  control_->slotSize = shape.slotSize;
  storeRelaxed(&control_->generation, 0);
  storeRelease(&control_->magic, kControlMagic);
}

void SharedTableMemory::checkControl(TableShape shape) const {
  if (loadAcquire(&control_->magic) != kControlMagic) fail("is not a table or not created yet");
  if (control_->format != kControlFormat || control_->keySize != shape.keySize ||
      control_->valueSize != shape.valueSize || control_->slotSize != shape.slotSize) {
    fail("holds keys of " + std::to_string(control_->keySize) + " bytes, values of " +
         std::to_string(control_->valueSize) + " bytes in slots of " +
         std::to_string(control_->slotSize) + " bytes (format " + std::to_string(control_->format) +
         "); expected " + std::to_string(shape.keySize) + ", " + std::to_string(shape.valueSize) +
         ", " + std::to_string(shape.slotSize) + " (format " + std::to_string(kControlFormat) +
         ")");
  }
}

std::string SharedTableMemory::dataPath(std::uint64_t generation) const {
  return path_ + ".g" + std::to_string(generation);
}

unsigned char* SharedTableMemory::current(std::uint64_t* generation) {
  for (int lookup = 0; lookup < kGenerationLookups; ++lookup) {
    const std::uint64_t newest = loadAcquire(&control_->generation);
    *generation = newest;
    if (newest == mappedGeneration_) return mapped_;
    const int fd = shm_open(dataPath(newest).c_str(), writer_ ? O_RDWR : O_RDONLY, 0);
    if (fd < 0 && errno == ENOENT) {
      // The writer published a newer generation and unlinked this one since we looked.
      sched_yield();
      continue;
    }
    if (fd < 0) failSystem("shm_open");
    struct stat status;
    if (fstat(fd, &status) != 0) {
      close(fd);
      failSystem("fstat");
    }
    const std::size_t bytes = static_cast<std::size_t>(status.st_size);
    void* at =
        mmap(nullptr, bytes, writer_ ? PROT_READ | PROT_WRITE : PROT_READ, MAP_SHARED, fd, 0);
    close(fd);
    if (at == MAP_FAILED) failSystem("mmap");
    if (mapped_) munmap(mapped_, mappedBytes_);
    mapped_ = static_cast<unsigned char*>(at);
    mappedBytes_ = bytes;
    mappedGeneration_ = newest;
    return mapped_;
  }
  fail("changes generation faster than it can be attached");
}

unsigned char* SharedTableMemory::prepare(std::size_t bytes) {
  const std::string path = dataPath(loadRelaxed(&control_->generation) + 1);
  // A generation given up before it was published; its name goes with the unlink below.
  if (prepared_) retired_.add(prepared_, preparedBytes_);
  prepared_ = nullptr;
  shm_unlink(path.c_str());  // left by a writer that died while building it
  const int fd = shm_open(path.c_str(), O_RDWR | O_CREAT | O_EXCL, 0644);
  if (fd < 0) failSystem("shm_open");
  if (ftruncate(fd, static_cast<off_t>(bytes)) != 0) {
    close(fd);
    failSystem("ftruncate");
  }
  void* at = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  close(fd);
  if (at == MAP_FAILED) failSystem("mmap");
  prepared_ = static_cast<unsigned char*>(at);
  preparedBytes_ = bytes;
  return prepared_;
}

void SharedTableMemory::publish() {
  const std::uint64_t old = loadRelaxed(&control_->generation);
  storeRelease(&control_->generation, old + 1);
  if (mapped_) retired_.add(mapped_, mappedBytes_);
  mapped_ = prepared_;
  mappedBytes_ = preparedBytes_;
  mappedGeneration_ = old + 1;
  prepared_ = nullptr;
  if (old != 0) shm_unlink(dataPath(old).c_str());
}

bool SharedTableMemory::otherWriterAlive() const {
  if (writer_) return false;
  struct flock lock = wholeLock(F_WRLCK);
  if (fcntl(controlFd_, F_OFD_GETLK, &lock) != 0) return false;
  return lock.l_type != F_UNLCK;
}

bool SharedTableMemory::unlink(const std::string& name) {
  if (!plainName(name)) return false;
  const std::string path = "/" + name;
  const int fd = shm_open(path.c_str(), O_RDONLY, 0);
  if (fd < 0) return false;
  std::uint64_t generation = 0;
  struct stat status;
  if (fstat(fd, &status) == 0 && static_cast<std::size_t>(status.st_size) >= sizeof(Control)) {
    void* at = mmap(nullptr, sizeof(Control), PROT_READ, MAP_SHARED, fd, 0);
    if (at != MAP_FAILED) {
      generation = loadAcquire(&static_cast<Control*>(at)->generation);
      munmap(at, sizeof(Control));
    }
  }
  close(fd);
  // A writer unlinks each generation it replaces; one that died may have left its neighbours.
  for (std::uint64_t near = generation > 0 ? generation - 1 : 0; near <= generation + 1; ++near) {
    shm_unlink((path + ".g" + std::to_string(near)).c_str());
  }
  shm_unlink(path.c_str());
  return true;
}

void SharedTableMemory::fail(const std::string& reason) const {
  throw Kel::RangeException("MirraMap::attach() table " + name_ + " " + reason);
}

void SharedTableMemory::failSystem(const std::string& operation) const {
  fail("cannot be attached: " + operation + ": " + std::strerror(errno));
}

void systemLog(bool problem, const std::string& message) {
  syslog(LOG_USER | (problem ? LOG_ERR : LOG_INFO), "%s", message.c_str());
}

}  // namespace internal
}  // namespace Mirra
