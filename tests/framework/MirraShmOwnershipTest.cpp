// Who may write and who may read a shared table: segments another user made or may write, the
// owners a reader trusts, the mode of new segments, and locks that other processes hold. Another
// user is a child process that gives up root for nobody; run as anyone else, those tests are
// skipped, saying why.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "framework/Kel/Exception.h"
#include "framework/Kel/Trace.h"
#include "framework/Mirra/CorruptionDetectedException.h"
#include "framework/Mirra/MirraMap.h"
#include "tests/framework/MirraShmTestSupport.h"
#include "tests/support/Refusal.h"
#include "tests/support/TraceCapture.h"

namespace {

using Mirra::AttachMode;
using Mirra::AttachOptions;
using MirraShmTest::answerFromChild;
using MirraShmTest::kOtherUser;
using MirraShmTest::Record;
using MirraShmTest::recordFor;
using MirraShmTest::segmentFile;
using MirraShmTest::SegmentGuard;
using MirraShmTest::Table;

// What attaching says: "attached", or the refusal's text.
std::string attachOutcome(const std::string& name, AttachMode mode,
                          const AttachOptions& options = AttachOptions()) {
  const auto refusal =
      TestSupport::thrownBy<Kel::Exception>([&] { Table::attachShared(name, mode, options); });
  return refusal ? refusal->what() : "attached";
}

std::string ownerAndMode(const std::string& segment) {
  struct stat status;
  if (stat(segmentFile(segment).c_str(), &status) != 0) return "missing";
  char mode[8];
  std::snprintf(mode, sizeof(mode), "%04o", static_cast<unsigned>(status.st_mode & 07777));
  return std::to_string(status.st_uid) + " " + mode;
}

// Child processes act as nobody and report through a pipe.
std::string asOtherUser(const std::function<std::string()>& body) {
  return answerFromChild(body, true);
}

// Tests of who may write and read that need no other user.
class MirraShmPermissions : public ::testing::Test {
 protected:
  TestSupport::TraceCapture debug{"Debug"};
  SegmentGuard segment{::testing::UnitTest::GetInstance()->current_test_info()->name()};
  // The owner and mode of a segment this test process made.
  std::string ownedWithMode(const char* mode) const {
    return std::to_string(geteuid()) + " " + mode;
  }
};

// Tests that act as another user (nobody) too: they run as root, and skip, saying why, otherwise.
class MirraShmOwnership : public MirraShmPermissions {
 protected:
  void SetUp() override {
    const std::string why = MirraShmTest::otherUserUnavailable();
    if (!why.empty()) GTEST_SKIP() << why;
  }
  const std::string root = "root (uid 0)";
  const std::string nobody = "nobody (uid 65534)";
};

TEST_F(MirraShmOwnership, OtherUsersTable_WriterRefusesNamingSegmentAndOwner_WritesNothing) {
  const std::string made = asOtherUser([&] {
    Table writer = Table::attachShared(segment.name(), AttachMode::singleWriter);
    writer.insert(recordFor(1, 1));
    return "made";
  });
  ASSERT_EQ(made, "made");
  EXPECT_EQ(attachOutcome(segment.name(), AttachMode::singleWriter),
            "MirraMap::attach() table " + segment.name() + " cannot be written: segment " +
                segment.name() + ".lock belongs to " + nobody + ", not to this writer's user " +
                root);
  for (const std::string& part : {segment.name(), segment.name() + ".lock"}) {
    EXPECT_EQ(ownerAndMode(part).substr(0, 6), "65534 ") << part;
  }
  AttachOptions trusting;
  trusting.trustedOwner = kOtherUser;
  const Table reader = Table::attachShared(segment.name(), AttachMode::reader, trusting);
  EXPECT_EQ(reader.members(), 1u);
  EXPECT_EQ(reader.lookup(1), recordFor(1, 1));
}

TEST_F(MirraShmOwnership, ControlMadeByHandByOtherUser_WriterRefusesNamingIt) {
  const std::string made = asOtherUser([&] {
    const int fd = shm_open(("/" + segment.name()).c_str(), O_RDWR | O_CREAT | O_EXCL, 0644);
    if (fd < 0) return std::string("not made");
    close(fd);
    return std::string("made");
  });
  ASSERT_EQ(made, "made");
  EXPECT_EQ(attachOutcome(segment.name(), AttachMode::singleWriter),
            "MirraMap::attach() table " + segment.name() + " cannot be written: segment " +
                segment.name() + " belongs to " + nobody + ", not to this writer's user " + root);
  struct stat status;
  ASSERT_EQ(stat(segmentFile(segment.name()).c_str(), &status), 0);
  EXPECT_EQ(status.st_size, 0);  // written nothing
}

TEST_F(MirraShmPermissions, WorldWritableControl_WriterAndReaderRefuse) {
  { Table writer = MirraShmTest::filledWriter(segment.name(), 3, 1); }
  ASSERT_EQ(chmod(segmentFile(segment.name()).c_str(), 0666), 0);
  EXPECT_EQ(attachOutcome(segment.name(), AttachMode::singleWriter),
            "MirraMap::attach() table " + segment.name() + " cannot be written: segment " +
                segment.name() + " is writable by group or others (mode 0666)");
  EXPECT_EQ(attachOutcome(segment.name(), AttachMode::reader),
            "MirraMap::attach() table " + segment.name() +
                " is writable by group or others (mode 0666): a reader does not trust it");
}

// Anyone who can open the lock segment can hold a lock on it that keeps the writer out.
TEST_F(MirraShmPermissions, LockSegmentOthersCanOpen_WriterRefusesNamingIt_ReadersStillRead) {
  { Table writer = MirraShmTest::filledWriter(segment.name(), 3, 1); }
  const std::string lock = segment.name() + ".lock";
  ASSERT_EQ(chmod(segmentFile(lock).c_str(), 0604), 0);
  EXPECT_EQ(attachOutcome(segment.name(), AttachMode::singleWriter),
            "MirraMap::attach() table " + segment.name() + " cannot be written: segment " + lock +
                " can be opened by group or others (mode 0604)");
  EXPECT_EQ(ownerAndMode(lock), ownedWithMode("0604"));
  const Table reader = Table::attachShared(segment.name(), AttachMode::reader);
  EXPECT_EQ(reader.lookup(2), recordFor(2, 1));
}

TEST_F(MirraShmPermissions, GenerationWritableByOthers_ReaderReportsIt_WriterRefuses) {
  { Table writer = MirraShmTest::filledWriter(segment.name(), 3, 1); }
  const std::string generation = segment.name() + ".g1";
  for (const mode_t mode : {0664, 0646}) {
    ASSERT_EQ(chmod(segmentFile(generation).c_str(), mode), 0);
    const std::string modeText = mode == 0664 ? "0664" : "0646";
    try {
      Table::attachShared(segment.name(), AttachMode::reader);
      FAIL() << "read a generation writable by others, mode " << modeText;
    } catch (const Mirra::CorruptionDetectedException& damage) {
      EXPECT_EQ(std::string(damage.what()), "its published generation " + generation +
                                                " is writable by group or others (mode " +
                                                modeText + ")");
    }
    EXPECT_EQ(attachOutcome(segment.name(), AttachMode::singleWriter),
              "MirraMap::attach() table " + segment.name() + " cannot be written: segment " +
                  generation + " is writable by group or others (mode " + modeText + ")");
    EXPECT_EQ(ownerAndMode(generation), ownedWithMode(modeText.c_str()));
  }
}

TEST_F(MirraShmOwnership, Reader_TrustsRootItselfAndTheNamedOwnerOnly) {
  const std::string made = asOtherUser([&] {
    Table writer = MirraShmTest::filledWriter(segment.name(), 2, 7);
    return "made";
  });
  ASSERT_EQ(made, "made");
  EXPECT_EQ(attachOutcome(segment.name(), AttachMode::reader),
            "MirraMap::attach() table " + segment.name() + " belongs to " + nobody +
                ", not to root, this reader's user or a user it is told to trust");
  AttachOptions trusting;
  trusting.trustedOwner = kOtherUser;
  EXPECT_EQ(attachOutcome(segment.name(), AttachMode::reader, trusting), "attached");
  // Its own user's table, read by nobody; and root's table.
  EXPECT_EQ(asOtherUser([&] {
              const Table reader = Table::attachShared(segment.name(), AttachMode::reader);
              return std::to_string(reader.lookup(1).round);
            }),
            "7");
  SegmentGuard rootsTable("RootsTable");
  { Table writer = MirraShmTest::filledWriter(rootsTable.name(), 2, 3); }
  EXPECT_EQ(asOtherUser([&] {
              const Table reader = Table::attachShared(rootsTable.name(), AttachMode::reader);
              return std::to_string(reader.lookup(1).round);
            }),
            "3");
}

TEST_F(MirraShmOwnership, GenerationReplacedByOtherUser_ReaderReportsIt) {
  { Table writer = MirraShmTest::filledWriter(segment.name(), 2, 1); }
  const std::string generation = segment.name() + ".g1";
  ASSERT_EQ(unlink(segmentFile(generation).c_str()), 0);
  const std::string made = asOtherUser([&] {
    const int fd = shm_open(("/" + generation).c_str(), O_RDWR | O_CREAT | O_EXCL, 0644);
    return std::string(fd >= 0 && ftruncate(fd, 4096) == 0 ? "made" : "not made");
  });
  ASSERT_EQ(made, "made");
  const std::string expected = "its published generation " + generation + " belongs to " + nobody +
                               ", not to the table's owner " + root;
  debug.clear();
  const auto damage = TestSupport::thrownBy<Mirra::CorruptionDetectedException>(
      [&] { Table::attachShared(segment.name(), AttachMode::reader); });
  ASSERT_TRUE(damage);
  EXPECT_EQ(std::string(damage->what()), expected);
  EXPECT_EQ(damage->table(), segment.name());
  EXPECT_EQ(debug.lines(), std::vector<std::string>{"MirraMap::corruptionDetected() table " +
                                                    segment.name() + ": " + expected});
}

// A process that holds a read lock on the control segment, as any user who can read it could;
// started() is false when it could not take the lock.
MirraShmTest::ChildProcess readLockHolder(const std::string& name, bool asOtherUser) {
  int ready[2];
  if (pipe(ready) != 0) return MirraShmTest::ChildProcess();
  MirraShmTest::ChildProcess holder(fork());
  if (holder.pid() == 0) {
    close(ready[0]);
    if (asOtherUser && !MirraShmTest::becomeOtherUser()) _exit(1);
    const int fd = shm_open(("/" + name).c_str(), O_RDONLY, 0);
    struct flock lock {};
    lock.l_type = F_RDLCK;
    lock.l_whence = SEEK_SET;
    lock.l_len = 0;
    const bool locked = fd >= 0 && fcntl(fd, F_OFD_SETLK, &lock) == 0;
    // The writer's lock segment does not even open for nobody.
    const bool lockSegmentClosed =
        !asOtherUser || shm_open(("/" + name + ".lock").c_str(), O_RDONLY, 0) < 0;
    const char answer = locked && lockSegmentClosed ? 'y' : 'n';
    if (write(ready[1], &answer, 1) != 1) _exit(2);
    pause();
    _exit(0);
  }
  close(ready[1]);
  char answer = 0;
  const bool told = read(ready[0], &answer, 1) == 1;
  close(ready[0]);
  if (!told || answer != 'y') return MirraShmTest::ChildProcess();
  return holder;
}

// The writer of a table whose control segment another process holds a read lock on.
std::string writerBesideReadLock(const std::string& name, bool asOtherUser) {
  { const Table writer = MirraShmTest::filledWriter(name, 2, 1); }
  MirraShmTest::ChildProcess holder = readLockHolder(name, asOtherUser);
  if (!holder.started()) return "no read lock taken";
  Table writer = Table::attachShared(name, AttachMode::singleWriter);
  return writer.insert(recordFor(3, 1)) && writer.lookup(3) == recordFor(3, 1) ? "written"
                                                                               : "not written";
}

TEST_F(MirraShmOwnership, ReadLockOnControlByAnotherUser_WriterStillStarts) {
  EXPECT_EQ(writerBesideReadLock(segment.name(), true), "written");
}

TEST_F(MirraShmPermissions, ReadLockOnControlByTheSameUser_WriterStillStarts) {
  EXPECT_EQ(writerBesideReadLock(segment.name(), false), "written");
}

TEST_F(MirraShmPermissions, ModeOption_NewSegmentsHaveExactlyThatModeWhateverTheUmask) {
  const mode_t before = umask(077);
  AttachOptions options;
  options.mode = 0640;
  {
    Table writer = Table::attachShared(segment.name(), AttachMode::singleWriter, options);
    // Growth starts at the 9th key and publishes the second generation a few writes later.
    for (std::uint64_t key = 0; key < 12; ++key) writer.insert(recordFor(key, 1));
  }
  umask(before);
  EXPECT_EQ(ownerAndMode(segment.name()), ownedWithMode("0640"));
  EXPECT_EQ(ownerAndMode(segment.name() + ".lock"), ownedWithMode("0600"));
  EXPECT_EQ(ownerAndMode(segment.name() + ".g1"), "missing");
  EXPECT_EQ(ownerAndMode(segment.name() + ".g2"), ownedWithMode("0640"));
}

TEST_F(MirraShmPermissions, ModeOption_NextWriterGivesTheSegmentsItTakesUpItsMode) {
  { const Table writer = MirraShmTest::filledWriter(segment.name(), 3, 1); }
  EXPECT_EQ(ownerAndMode(segment.name() + ".g1"), ownedWithMode("0644"));
  AttachOptions ownerOnly;
  ownerOnly.mode = 0600;
  { const Table writer = Table::attachShared(segment.name(), AttachMode::singleWriter, ownerOnly); }
  EXPECT_EQ(ownerAndMode(segment.name()), ownedWithMode("0600"));
  EXPECT_EQ(ownerAndMode(segment.name() + ".g1"), ownedWithMode("0600"));
  EXPECT_EQ(ownerAndMode(segment.name() + ".lock"), ownedWithMode("0600"));
}

TEST_F(MirraShmPermissions, ModeOption_WritableByOthers_Refused) {
  AttachOptions options;
  options.mode = 0664;
  EXPECT_EQ(attachOutcome(segment.name(), AttachMode::singleWriter, options),
            "MirraMap::attach() table " + segment.name() +
                " cannot be made with mode 0664: the owner reads and writes, group and others "
                "may at most read (0600, 0640, 0604 or 0644)");
  EXPECT_FALSE(MirraShmTest::segmentExists(segment.name()));
}

}  // namespace
