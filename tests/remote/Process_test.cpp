#include "Process.h"

#include "Descriptor.h"
#include "Forked.h"

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <csignal>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

TEST(FarEndProcess, IsNeitherDumpedNorLookedInto)
{
    EXPECT_EQ(ExitCodeOfForked(
                  []
                  {
                      farend::SetUpProcess();
                      rlimit core = {1, 1};
                      ::getrlimit(RLIMIT_CORE, &core);
                      return core.rlim_max == 0 && ::prctl(PR_GET_DUMPABLE) == 0 ? 0 : 1;
                  }),
              0);
}

// Set by a starter, that is inherited by what it starts.
TEST(FarEndProcess, HearsOfTheEndOfAChildThoughTheStarterIgnoredThat)
{
    EXPECT_EQ(ExitCodeOfForked(
                  []
                  {
                      std::signal(SIGCHLD, SIG_IGN);
                      farend::SetUpProcess();
                      const pid_t child = ::fork();
                      if (child == 0) ::_exit(7);
                      int status = 0;
                      return ::waitpid(child, &status, 0) == child ? WEXITSTATUS(status) : 1;
                  }),
              7);
}

TEST(FarEndProcess, GivesTheNumbersOfStandardDescriptorsToNobodyElse)
{
    EXPECT_EQ(ExitCodeOfForked(
                  []
                  {
                      for (const int standard : {0, 1, 2}) ::close(standard);
                      farend::SetUpProcess();
                      return ::open("/dev/null", O_RDONLY);
                  }),
              3);
}

TEST(FarEndProcess, ClosedStandardDescriptorsRefuseToBeReadAndWrittenAsBefore)
{
    EXPECT_EQ(ExitCodeOfForked(
                  []
                  {
                      for (const int standard : {0, 1, 2}) ::close(standard);
                      farend::FillStandardDescriptors();
                      char byte = 0;
                      if (::read(0, &byte, 1) != -1 || errno != EBADF) return 1;
                      if (::write(1, &byte, 1) != -1 || errno != EBADF) return 2;
                      return ::write(2, &byte, 1) != -1 || errno != EBADF ? 3 : 0;
                  }),
              0);
}

TEST(FarEndProcess, StandardDescriptorsThatAreOpenStayAsTheyAre)
{
    EXPECT_EQ(ExitCodeOfForked(
                  []
                  {
                      const farend::Pipe pipe;
                      ::dup2(pipe.read.Get(), 0);
                      ::close(1);
                      farend::FillStandardDescriptors();
                      char byte = 0;
                      return ::write(pipe.write.Get(), "x", 1) == 1 && ::read(0, &byte, 1) == 1 ? byte : 1;
                  }),
              'x');
}
