#pragma once
// Mirra::internal::SharedTableMemory: a table's memory in named POSIX shared-memory segments, so
// that processes other than the writer read the table.
//
// A table named N is a small control segment "N", a lock segment "N.lock" and one data segment per
// generation, "N.g<k>" (SegmentFiles.h), which holds the table header, the slot array and the hash
// index. The control segment records the format (key, value and slot sizes), the number of the
// published generation and the writer's process (ControlBlock.h). A writer that grows or rebuilds
// the table fills a new data segment, publishes its number in the control segment, then unlinks
// the old one (readers that still map it keep their mapping until they move) and unmaps its own
// mapping of it a piece per later write. A data segment is sized with ftruncate, which leaves it
// zeroed without touching its pages.
//
// Invariants:
//  1. At most one writer per table: the writer holds an open-file-description write lock on the
//     lock segment, which only its own user can open (mode 0600), so that no reader and no other
//     user can hold a lock that keeps a writer out; the kernel releases the lock when the writer's
//     process ends however it ends. A second writer is refused with
//     "MirraMap::attach() table N already has a writer".
//  2. Every segment the writer creates it creates exclusively (O_EXCL), with exactly the mode of
//     its options; a generation name already taken is passed over for the next number. A segment
//     that exists is used by the writer only when its own user owns it and neither group nor
//     others may write it (nor, for the lock, open it); otherwise the writer refuses, naming the
//     segment and its owner, before it writes anything. It gives those it takes up the mode of its
//     options too (the lock 0600).
//  3. A reader uses a table only when root, its own user or the user its options name owns the
//     control segment and no group or other may write it, and every generation it maps belongs to
//     that same owner on the same terms; it maps every segment read-only (PROT_READ).
//  4. A writer that attaches removes every generation of the table that it owns and is not the
//     published one (left by a writer that died between publishing and unlinking, or while filling
//     one); an unpublished generation is also removed when its writer lets go or its process exits
//     normally. A control segment found damaged, of the wrong size or unfilled is rebuilt, its
//     published generation found again among the table's generations (the newest one marked
//     published that checks out).
//  5. A reader tells a live writer from a gone one by the writer's process, which the control
//     segment names (id and start time), and, when it may open the lock segment (root, or the
//     writer's own user), by asking whether the lock is held, which also holds across process id
//     namespaces. It never takes the lock.
//  6. A reader that finds the control segment or a generation damaged, missing or not its owner's
//     is told through MemoryDamage with what is wrong; refusals of who may attach are
//     Kel::RangeException.
//  7. No pointer into process memory is stored in any segment.

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "framework/Mirra/SharedTable.h"
#include "framework/Mirra/internal/ControlBlock.h"
#include "framework/Mirra/internal/RetiredMappings.h"
#include "framework/Mirra/internal/TableHeader.h"
#include "framework/Mirra/internal/TableMemory.h"

namespace Mirra {
namespace internal {

class SharedTableMemory : public TableMemory {
 public:
  // Throws Kel::RangeException, with the reason, when the table cannot be attached.
  SharedTableMemory(const std::string& name, AttachMode mode, TableShape shape,
                    const AttachOptions& options);
  ~SharedTableMemory() override;
  SharedTableMemory(const SharedTableMemory&) = delete;
  SharedTableMemory& operator=(const SharedTableMemory&) = delete;

  // Removes every segment of table `name`; attachments keep their mappings.
  static UnlinkReport unlink(const std::string& name);

  Mapping current(std::uint64_t* generation) override;
  unsigned char* prepare(std::size_t bytes, const char* operation) override;
  std::string publish() override;
  void releaseRetired() override { retired_.releasePiece(); }
  bool writable() const override { return writer_; }
  bool shared() const override { return true; }
  const std::string& name() const override { return name_; }
  WriterState writerState() const override;
  std::vector<std::string> takeAttachFindings() override;
  bool strayed() const override;
  std::string mend() override;

 private:
  void attachAsWriter(TableShape shape);
  void attachAsReader(TableShape shape);
  void release();

  // Writer.
  int openOwnSegment(const std::string& segment, mode_t mode, mode_t forbidden, bool* created);
  // The existing `segment`, opened for writing after the checks of invariant 2 (refusing as they
  // say) and given `mode`, its status in *status; -1 with errno set when it cannot be opened.
  int openExisting(const std::string& segment, mode_t mode, mode_t forbidden, struct stat* status);
  void lockForWriting();
  // The published generation's number as the control segment gives it, or recovered (invariant
  // 4); 0 for none.
  std::uint64_t openControlForWriting(TableShape shape);
  // Writes the control segment anew and finds the published generation again among the table's
  // generations (invariant 4), recording what was found; `damaged` says which part failed its
  // check, "" for a segment a writer left unfilled. The generation's number, 0 for none.
  std::uint64_t controlRebuilt(TableShape shape, const std::string& damaged);
  void controlIs(TableShape shape);
  std::uint64_t recoveredGeneration(TableShape shape) const;
  void removeStaleGenerations(std::uint64_t kept);
  void mapPublished(std::uint64_t generation);
  void controlWordIs(ControlWord word, std::uint64_t value);

  // Reader.
  Mapping mapForReading(std::uint64_t word, std::uint64_t generation);

  std::string segmentPath(const std::string& segment) const { return "/" + segment; }
  std::string generationPath(std::uint64_t generation) const;
  std::string shapeRefusal(const ControlFixed& fixed, TableShape shape) const;
  // Refuses a control segment of `bytes` that is one of the former format (ControlBlock.h).
  void refuseFormerFormat(std::size_t bytes) const;
  // Why the writer may not use an existing segment (invariant 2), or "".
  std::string writerRefusal(const struct stat& status, const std::string& segment,
                            mode_t forbidden) const;
  [[noreturn]] void fail(const std::string& operation, const std::string& reason) const;
  [[noreturn]] void failCall(const std::string& operation, const std::string& what,
                             const std::string& call) const;

  const std::string name_;
  const bool writer_;
  const AttachOptions options_;
  int lockFd_ = -1;  // writer: holds the lock; reader: asks about it, when it may open it
  int controlFd_ = -1;
  ControlBlock* control_ = nullptr;
  // Reader: the control segment's owner, whom every generation must belong to; what is wrong with
  // the control segment when it is damaged ("" when not).
  uid_t owner_ = 0;
  std::string controlDamage_;
  // Where generation() reads: the control segment (reader), the writer's own copy (writer), or a
  // word that stays 0.
  std::uint64_t noGeneration_ = 0;
  // Writer: its own copy of the control segment, and what attaching found damaged and mended.
  ControlBlock own_{};
  std::vector<std::string> findings_;
  std::uint64_t nextGeneration_ = 1;
  unsigned char* mapped_ = nullptr;
  std::size_t mappedBytes_ = 0;
  std::uint64_t mappedGeneration_ = 0;
  std::uint64_t mappedWord_ = 0;  // the published word as read when the mapping was made
  unsigned char* prepared_ = nullptr;
  std::size_t preparedBytes_ = 0;
  std::uint64_t preparedGeneration_ = 0;
  RetiredMappings retired_;
};

// Writes a shared table's report to the system log.
void systemLog(bool problem, const std::string& message);

}  // namespace internal
}  // namespace Mirra
