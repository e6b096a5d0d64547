// Two processes contend for one folder lock. Each records in a shared journal
// when it starts and stops holding the lock; the journal must show the holds
// one after another, never overlapping.
#include "folder_lock.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/temp_dir.h"

namespace {

const int kProcesses = 2;
const int kHoldsEach = 3;
const int kMaxLockCalls = 20;  // each failed call costs three seconds

// Appends one line in a single write, so lines of the two processes never mix.
bool appendLine(int fd, const std::string& line) {
  const std::string text = line + "\n";
  return write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

int childMain(const std::string& folder, const std::string& journal, int id, int startFd) {
  char go;
  if (read(startFd, &go, 1) != 0) return 10;
  const int fd = open(journal.c_str(), O_WRONLY | O_APPEND);
  if (fd < 0) return 11;
  int holds = 0;
  for (int call = 0; call < kMaxLockCalls && holds < kHoldsEach; ++call) {
    const auto start = std::chrono::steady_clock::now();
    QzviFolderLock* lock = qzviLockFolder(QzbString(folder.c_str()));
    const long waitedMs = static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                                std::chrono::steady_clock::now() - start)
                                                .count());
    if (lock == nullptr) {
      appendLine(fd, "busy " + std::to_string(id) + " " + std::to_string(waitedMs));
      continue;
    }
    if (!appendLine(fd, "take " + std::to_string(id) + " " + std::to_string(waitedMs))) return 12;
    // The first hold is long, so that the other process, started at the same
    // moment, certainly finds the lock taken at least once.
    usleep(holds == 0 ? 1200 * 1000 : 100 * 1000);
    if (!appendLine(fd, "give " + std::to_string(id))) return 12;
    qzviUnlockFolder(lock);
    ++holds;
    usleep(50 * 1000);
  }
  close(fd);
  return holds == kHoldsEach ? 0 : 13;
}

TEST(FolderLockMultiProcessTest, OnlyOneProcessHoldsTheLockAtATime) {
  qztest::TempDir dir;
  const std::string folder = dir.join("folder");
  qztest::makeDirs(folder);
  const std::string journal = dir.join("journal");
  qztest::writeFile(journal, "");

  int start[2];
  ASSERT_EQ(pipe(start), 0);
  std::vector<pid_t> children;
  for (int id = 0; id < kProcesses; ++id) {
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      close(start[1]);
      _exit(childMain(folder, journal, id, start[0]));
    }
    children.push_back(child);
  }
  close(start[0]);
  close(start[1]);
  for (pid_t child : children) {
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child status " << status;
  }

  const std::string text = qztest::readFile(journal);
  std::istringstream lines(text);
  std::string line;
  int holder = -1;
  std::vector<int> holds(kProcesses, 0);
  int busy = 0;
  int takesAfterWaiting = 0;  // lock calls that had at least one failed attempt
  while (std::getline(lines, line)) {
    std::istringstream words(line);
    std::string what;
    int id = -1;
    long waitedMs = 0;
    words >> what >> id >> waitedMs;
    ASSERT_TRUE(id >= 0 && id < kProcesses) << line << "\n" << text;
    if (what == "take") {
      ASSERT_EQ(holder, -1) << "process " << id << " took the lock while " << holder
                            << " held it:\n" << text;
      holder = id;
      ++holds[id];
      if (waitedMs >= 900) ++takesAfterWaiting;
    } else if (what == "give") {
      ASSERT_EQ(holder, id) << text;
      holder = -1;
    } else {
      ASSERT_EQ(what, "busy") << text;
      ++busy;
    }
  }
  EXPECT_EQ(holder, -1);
  for (int id = 0; id < kProcesses; ++id) EXPECT_EQ(holds[id], kHoldsEach) << "process " << id;
  EXPECT_FALSE(qztest::pathExists(folder + "/.v_lck")) << "the last holder removed the lock file";
  EXPECT_GE(takesAfterWaiting, 1) << "the processes never contended:\n" << text;
  RecordProperty("failed_lock_calls", busy);
}

}  // namespace
