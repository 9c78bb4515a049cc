#include "Agent/Commands/RealChildren.h"

#include "Agent/Commands/DescriptorLimit.h"
#include "Agent/Commands/Processes.h"
#include "Platform/Cog/RealTime.h"
#include "Platform/Cog/TimerWheel.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <fstream>
#include <sstream>

namespace {

using Agent::Children;
using Agent::ProcessId;

/// Real processes in real time. A test that waits for something that does not come fails after a deadline.
class RealChildren : public testing::Test, public Children::Listener {
 protected:
   struct Deadline final : Cog::TimerReactor< RealChildren > {
      using TimerReactor::TimerReactor;
      void onTime() override { sm()->loop->stop(); }
   };

   RealChildren() { makeNew(); }

   Children::Held hold( const std::string & script, const std::string & input = "" ) {
      return children->hold(
         ++id, { { "/bin/sh", "-c", script }, { mark, "PATH=/usr/bin:/bin" }, input }, *this );
   }
   ProcessId begin( const std::string & script, const std::string & input = "" ) {
      const auto held = hold( script, input );
      EXPECT_EQ( "", held.problem );
      children->go( id );
      return held.process;
   }
   /// Runs turns until it is so. Something of the loop happens each time: a child says something or ends.
   void until( const std::function< bool() > & so ) {
      isSo = so;
      deadline->timeMinIs( loop->currentTime() + 30 );
      if ( !so() )
         loop->run();
      EXPECT_TRUE( so() ) << "out: " << out << "\nerr: " << err;
      isSo = nullptr;
   }
   void untilEnded() {
      until( [this] { return ended; } );
   }
   /// The same for what nobody tells the loop of.
   void untilLooking( const std::function< bool() > & so ) {
      looking = true;
      lookAgain();
      until( so );
      looking = false;
   }
   void lookAgain() {
      loop->post( [this] {
         look();
         if ( looking )
            lookAgain();
      } );
   }
   void untilGone( const std::string & pid ) {
      untilLooking( [&] { return !alive( pid ); } );
   }
   /// What an agent leaves that makes a process and is killed.
   ProcessId leftByAnAgent( const std::function< ProcessId() > & make ) {
      int ends[2];
      EXPECT_EQ( 0, pipe2( ends, O_CLOEXEC ) );
      const pid_t agent = fork();
      if ( agent == 0 ) {
         makeNew();
         const ProcessId process = make();
         const Vel::U64 said[] = { process.pid, process.startTime };
         if ( write( ends[1], said, sizeof said ) == sizeof said )
            raise( SIGKILL );
         _exit( 1 );
      }
      close( ends[1] );
      Vel::U64 said[2] = {};
      EXPECT_EQ( ssize_t( sizeof said ), read( ends[0], said, sizeof said ) );
      close( ends[0] );
      waitpid( agent, nullptr, 0 );
      ProcessId process = Agent::processOf( getpid() );
      process.pid = static_cast< Vel::U32 >( said[0] );
      process.startTime = said[1];
      return process;
   }
   void makeNew() {
      children.reset();
      deadline.del();
      loop = Vel::make< Cog::EventLoop >( Vel::make< Cog::RealTime >( 1.7e9 ) );
      wheel = Vel::make< Cog::TimerWheel >( loop, 1000u, 1800u, true, 1024u );
      deadline.is( wheel, this ).hasNotificationActiveIs( true );
      children = std::make_unique< Agent::RealChildren >( loop );
   }
   void childSays( Children::Id, Children::Stream stream, std::string_view bytes ) override {
      ( stream == Children::Stream::output ? out : err ) += bytes;
      look();
   }
   void childEnded( Children::Id, const Children::Ending & how ) override {
      EXPECT_TRUE( loop->inTurn() );
      ended = true;
      ending = how;
      look();
   }
   void look() {
      if ( isSo && isSo() )
         loop->stop();
   }
   static bool alive( const std::string & pid ) {
      std::ifstream file( "/proc/" + pid + "/stat" );
      std::ostringstream text;
      text << file.rdbuf();
      const std::string stat = text.str();
      const std::size_t nameEnd = stat.rfind( ')' );
      return nameEnd != stat.npos && stat.substr( nameEnd + 2, 1 ) != "Z";
   }
   /// The first word of what has been said.
   std::string word() const { return out.substr( 0, out.find_first_of( " \n" ) ); }

   const std::string mark = "MAINTD_RUN=test#" + std::to_string( getpid() );
   Vel::Ptr< Cog::EventLoop > loop;
   Vel::Ptr< Cog::TimerWheel > wheel;
   Vel::Watch< Deadline > deadline;
   std::unique_ptr< Agent::RealChildren > children;
   Children::Id id = 0;
   std::string out, err;
   bool looking = false;
   bool ended = false;
   Children::Ending ending;
   std::function< bool() > isSo;
};

TEST_F( RealChildren, giveTheirOutputAndTheirStatus ) {
   begin( "cat; echo oops >&2; exit 3", "hello\n" );
   untilEnded();
   EXPECT_EQ( "hello\n", out );
   EXPECT_EQ( "oops\n", err );
   EXPECT_EQ( 3, ending.status );
   EXPECT_EQ( 0, ending.signal );
}

/// Whoever starts the agent may ignore SIGCHLD, and what is ignored stays so in the program that is started.
TEST_F( RealChildren, giveTheirStatusWhereTheEndOfChildrenWasIgnored ) {
   signal( SIGCHLD, SIG_IGN );
   makeNew();
   begin( "exit 3" );
   untilEnded();
   EXPECT_EQ( 3, ending.status );
   EXPECT_TRUE( ending.known );
}

TEST_F( RealChildren, haveNotEndedWellIfNobodyKnowsHow ) {
   const ProcessId process = begin( "exit 0" );
   EXPECT_EQ( pid_t( process.pid ), waitpid( static_cast< pid_t >( process.pid ), nullptr, 0 ) );
   untilEnded();
   EXPECT_FALSE( ending.known );
}

TEST_F( RealChildren, thatCannotBeMadeForWantOfDescriptorsMayBeMadeLater ) {
   rlimit before;
   ASSERT_EQ( 0, getrlimit( RLIMIT_NOFILE, &before ) );
   rlimit few = before;
   few.rlim_cur = 8;
   ASSERT_EQ( 0, setrlimit( RLIMIT_NOFILE, &few ) );
   const auto held = hold( "echo here" );
   ASSERT_EQ( 0, setrlimit( RLIMIT_NOFILE, &before ) );
   EXPECT_EQ( "Too many open files", held.problem );
   EXPECT_TRUE( held.scarce );
   begin( "echo here" );
   untilEnded();
   EXPECT_EQ( "here\n", out );
}

TEST_F( RealChildren, mayHaveAsManyDescriptorsAsIfWeHadNotTakenMore ) {
   rlimit before, raised;
   ASSERT_EQ( 0, getrlimit( RLIMIT_NOFILE, &before ) );
   rlimit usual = before;
   usual.rlim_cur = 200;
   ASSERT_EQ( 0, setrlimit( RLIMIT_NOFILE, &usual ) );
   Agent::descriptorLimitRaise();
   ASSERT_EQ( 0, getrlimit( RLIMIT_NOFILE, &raised ) );
   EXPECT_LT( 200u, raised.rlim_cur );
   begin( "ulimit -n" );
   untilEnded();
   EXPECT_EQ( "200\n", out );
   ASSERT_EQ( 0, setrlimit( RLIMIT_NOFILE, &before ) );
}

TEST_F( RealChildren, readMoreThanAPipeHoldsAndSayMore ) {
   std::string much( 1'000'000, 'x' );
   much += "\n";
   begin( "cat", much );
   untilEnded();
   EXPECT_EQ( much, out );
}

TEST_F( RealChildren, thatDoNotReadTheirInputAreNoTrouble ) {
   begin( "exec 0<&-; echo on", std::string( 1'000'000, 'x' ) );
   untilEnded();
   EXPECT_EQ( "on\n", out );
   EXPECT_EQ( 0, ending.status );
}

TEST_F( RealChildren, thatKeepTheirInputAndNeverReadItKeepNobodyWaiting ) {
   const std::string much( 4'000'000, 'x' );
   begin( "echo on; exec sleep 1000", much );
   until( [this] { return out == "on\n"; } );
   const Children::Id first = id;
   out.clear();
   begin( "wc -c", much );
   untilEnded();
   EXPECT_EQ( "4000000\n", out );
   ended = false;
   children->terminate( first );
   untilEnded();
   EXPECT_EQ( SIGTERM, ending.signal );
}

/// The child has no numbers left to which it could move what it is given.
TEST_F( RealChildren, thatCannotArrangeTheirDescriptorsSaySoAndRunNothing ) {
   // Sanitizers look through a pipe at objects of a type that is new to them.
   begin( "true" );
   untilEnded();
   ended = false;
   // Five pipes, the process itself, and a file that is read meanwhile.
   std::array< int, 12 > enough{};
   for ( int & descriptor : enough )
      descriptor = dup( 0 );
   for ( const int descriptor : enough )
      close( descriptor );
   rlimit before;
   ASSERT_EQ( 0, getrlimit( RLIMIT_NOFILE, &before ) );
   rlimit few = before;
   few.rlim_cur = static_cast< rlim_t >( enough.back() ) + 1;
   ASSERT_EQ( 0, setrlimit( RLIMIT_NOFILE, &few ) );
   const auto held = hold( "echo here" );
   ASSERT_EQ( 0, setrlimit( RLIMIT_NOFILE, &before ) );
   ASSERT_EQ( "", held.problem );
   children->go( id );
   untilEnded();
   EXPECT_EQ( "", out );
   EXPECT_EQ( "cannot be run: Too many open files\n", err );
   EXPECT_EQ( 127, ending.status );
}

TEST_F( RealChildren, doNotBeginBeforeTheyAreToldTo ) {
   const auto held = hold( "echo here" );
   EXPECT_EQ( "", held.problem );
   EXPECT_EQ( Agent::processOf( static_cast< pid_t >( held.process.pid ) ), held.process );
   // What is told of the first child is told after what the second one, made later, has done.
   const Children::Id first = id;
   begin( "echo second" );
   untilEnded();
   EXPECT_EQ( "second\n", out );
   ended = false;
   children->go( first );
   untilEnded();
   EXPECT_EQ( "second\nhere\n", out );
}

/// An agent that ends before it has said so must not have done anything.
TEST_F( RealChildren, thatWereNotToldToBeginEndWithTheirAgent ) {
   const std::string file = testing::TempDir() + "begun" + std::to_string( getpid() );
   const ProcessId process = leftByAnAgent( [&] { return hold( "echo x > " + file ).process; } );
   untilGone( std::to_string( process.pid ) );
   EXPECT_FALSE( std::ifstream( file ).good() );
}

TEST_F( RealChildren, haveAGroupAndSessionOfTheirOwnAndNothingOfTheAgent ) {
   // One that a library has not marked.
   const int left = open( "/dev/null", O_RDONLY );
   ASSERT_GE( left, 0 );
   const auto process = begin(
      "ps -o pid=,pgid=,sid= -p $$; pwd; env | grep -v ^_= | grep -v ^PWD= | sort; ls /proc/self/fd | wc -l; "
      "grep -E '^(SigBlk|SigIgn)' /proc/self/status; umask" );
   untilEnded();
   std::istringstream in( out );
   std::string pid, group, session, folder, first, path, descriptors, blocked, ignored, mask;
   in >> pid >> group >> session >> folder >> first >> path >> descriptors >> mask >> blocked >> mask >>
      ignored >> mask;
   EXPECT_EQ( std::to_string( process.pid ), pid );
   EXPECT_EQ( pid, group );
   EXPECT_EQ( pid, session );
   EXPECT_EQ( "/", folder );
   EXPECT_EQ( mark, first );
   EXPECT_EQ( "PATH=/usr/bin:/bin", path );
   // 0 to 3, and that of the folder that ls reads.
   EXPECT_EQ( "5", descriptors );
   close( left );
   EXPECT_EQ( "0000000000000000", blocked );
   // Two that the C library keeps for itself are as whoever has started this left them: no program can set them.
   constexpr unsigned long long ofTheLibrary = 3ull << 31;
   EXPECT_EQ( 0u, std::stoull( ignored, nullptr, 16 ) & ~ofTheLibrary ) << ignored;
   EXPECT_EQ( "0022", mask );
}

TEST_F( RealChildren, areToldOnDescriptorThreeThatTheirRecordIsSafe ) {
   begin( "echo record; read x <&3 && echo safe; read x <&3 || echo gone" );
   until( [this] { return out == "record\n"; } );
   children->kept( id );
   until( [this] { return out == "record\nsafe\n"; } );
   children->kept( id );
   untilEnded();
   EXPECT_EQ( "record\nsafe\n", out );
}

/// They end with their agent; what they have started can still ask whether its record is safe.
TEST_F( RealChildren, areToldThereThatTheAgentIsGone ) {
   const std::string file = testing::TempDir() + "gone" + std::to_string( getpid() );
   leftByAnAgent( [&] {
      const ProcessId process = begin( "( echo on; read x <&3 || echo gone > " + file + " ) & wait" );
      until( [this] { return out == "on\n"; } );
      return process;
   } );
   untilLooking( [&] { return std::ifstream( file ).good(); } );
   unlink( file.c_str() );
}

TEST_F( RealChildren, areEndedWithTheirWholeGroupByRequest ) {
   begin( "sleep 1000 & echo $!; wait" );
   until( [this] { return out.ends_with( "\n" ); } );
   children->terminate( id );
   untilEnded();
   EXPECT_EQ( SIGTERM, ending.signal );
   EXPECT_FALSE( alive( word() ) );
}

TEST_F( RealChildren, getTimeToEndByThemselvesAndAreThenEndedByForce ) {
   const ProcessId process = begin( "( trap '' TERM; echo up; exec sleep 1000 ) & wait" );
   until( [this] { return out == "up\n"; } );
   children->terminate( id );
   untilGone( std::to_string( process.pid ) );
   EXPECT_FALSE( ended ) << "while one of its group is still there";
   children->kill( id );
   untilEnded();
}

/// As job control and many a wrapper make one.
TEST_F( RealChildren, areEndedWithGroupsThatTheyHaveMade ) {
   begin( "timeout 1000 sleep 1000 & echo $!; wait" );
   until( [this] { return out.ends_with( "\n" ); } );
   // It has left the group of its leader.
   untilLooking( [&] { return getpgid( std::stoi( word() ) ) == std::stoi( word() ); } );
   children->terminate( id );
   untilEnded();
   EXPECT_FALSE( alive( word() ) );
}

TEST_F( RealChildren, areEndedByForceWithGroupsThatTheyHaveMade ) {
   begin( "exec bash -c 'set -m; ( trap \"\" TERM; echo $BASHPID; exec sleep 1000 ) & wait'" );
   until( [this] { return out.ends_with( "\n" ); } );
   const std::string pid = word();
   ASSERT_EQ( std::stoi( pid ), getpgid( std::stoi( pid ) ) );
   children->terminate( id );
   children->kill( id );
   untilEnded();
   EXPECT_FALSE( alive( pid ) ) << "when their end is told";
}

TEST_F( RealChildren, leaveNothingOfTheirSessionBehind ) {
   begin( "exec bash -c 'set -m; sleep 1000 & echo $!'" );
   untilEnded();
   EXPECT_EQ( 0, ending.status );
   EXPECT_FALSE( alive( word() ) ) << "when their end is told";
}

TEST_F( RealChildren, leaveNothingOfTheirGroupBehind ) {
   begin( "sleep 1000 & echo $!" );
   untilEnded();
   EXPECT_EQ( 0, ending.status );
   EXPECT_FALSE( alive( word() ) ) << "when their end is told";
}

TEST_F( RealChildren, thatStartSomethingOnPurposeLeaveIt ) {
   begin( "setsid sh -c 'echo $$; exec sleep 1000 < /dev/null > /dev/null 2>&1' & read x <&3" );
   until( [this] { return out.ends_with( "\n" ); } );
   children->kept( id );
   untilEnded();
   const std::string pid = word();
   EXPECT_TRUE( alive( pid ) );
   kill( std::stoi( pid ), SIGKILL );
}

TEST_F( RealChildren, thatNeverStopTalkingKeepNobodyWaiting ) {
   begin( "yes" );
   until( [this] { return out.size() > 1'000'000; } );
   children->terminate( id );
   untilEnded();
   EXPECT_EQ( SIGTERM, ending.signal );
}

TEST_F( RealChildren, sayWhyTheirCommandCannotBeRun ) {
   EXPECT_EQ(
      "", children->hold( ++id, { { "/nonexistent/steer", "enter" }, { mark }, "" }, *this ).problem );
   children->go( id );
   untilEnded();
   EXPECT_EQ( "cannot be run: No such file or directory\n", err );
   EXPECT_EQ( 127, ending.status );
}

TEST_F( RealChildren, endWithTheAgentThatForgetsThem ) {
   begin( "sleep 1000 & echo $!; wait" );
   until( [this] { return out.ends_with( "\n" ); } );
   children.reset();
   untilGone( word() );
   EXPECT_FALSE( ended );
}

// ---- those that somebody else traces

/// Another process traces one of ours, and is told of its end before we are. It lets go when it is told to.
class TracedChild : public RealChildren {
 protected:
   ~TracedChild() override { letGo(); }
   void trace( pid_t traced ) {
      int ends[2];
      ASSERT_EQ( 0, pipe2( ends, O_CLOEXEC ) );
      tracer = fork();
      if ( tracer == 0 ) {
         const bool ok = ptrace( PTRACE_SEIZE, traced, nullptr, nullptr ) == 0;
         if ( write( ends[1], ok ? "y" : "n", 1 ) == 1 )
            pause();
         _exit( 0 );
      }
      char is = 'n';
      EXPECT_EQ( 1, read( ends[0], &is, 1 ) );
      close( ends[0] );
      close( ends[1] );
      ASSERT_EQ( 'y', is ) << "this process may not trace others";
   }
   void letGo() {
      if ( tracer <= 0 )
         return;
      kill( tracer, SIGKILL );
      waitpid( tracer, nullptr, 0 );
      tracer = 0;
   }
   static bool isEnded( const ProcessId & process ) { return !alive( std::to_string( process.pid ) ); }
   pid_t tracer = 0;
};

TEST_F( TracedChild, hasEndedWhenItIsLetGoAndThenAsItDid ) {
   const ProcessId process = begin( "echo on; read x <&3; exit 3" );
   until( [this] { return out == "on\n"; } );
   trace( static_cast< pid_t >( process.pid ) );
   children->kept( id );
   untilLooking( [&] { return isEnded( process ); } );
   // However fast the loop turns meanwhile.
   const double since = loop->currentTime();
   untilLooking( [&] { return ended || loop->currentTime() > since + 1; } );
   EXPECT_FALSE( ended );
   letGo();
   untilEnded();
   EXPECT_TRUE( ending.known );
   EXPECT_EQ( 3, ending.status );
}

TEST_F( TracedChild, isGivenUpInTheEndAndNobodyKnowsHowItHasEnded ) {
   const ProcessId process = begin( "echo on; read x <&3; exit 0" );
   until( [this] { return out == "on\n"; } );
   trace( static_cast< pid_t >( process.pid ) );
   const double since = loop->currentTime();
   const auto turns = loop->turns();
   children->kept( id );
   untilEnded();
   EXPECT_FALSE( ending.known );
   EXPECT_GE( loop->currentTime() - since, 4 );
   EXPECT_LT( loop->turns() - turns, 200u ) << "it was looked at all the time";
   // It is collected when the next one is made.
   letGo();
   begin( "exit 0" );
   EXPECT_EQ( -1, waitpid( static_cast< pid_t >( process.pid ), nullptr, WNOHANG ) );
}

/// As one that waits inside the kernel and cannot be killed.
TEST_F( TracedChild, doesNotKeepTheAgentFromEnding ) {
   const ProcessId process = begin( "echo on; read x <&3" );
   until( [this] { return out == "on\n"; } );
   trace( static_cast< pid_t >( process.pid ) );
   children.reset();
   SUCCEED() << "it has come back";
   letGo();
   EXPECT_EQ( pid_t( process.pid ), waitpid( static_cast< pid_t >( process.pid ), nullptr, 0 ) );
}

// ---- what an earlier agent has left

TEST_F( RealChildren, areFoundAgainByTheNextAgent ) {
   const ProcessId process = begin( "sleep 1000 & echo $!; wait" );
   until( [this] { return out.ends_with( "\n" ); } );
   EXPECT_EQ( 2u, Agent::remnantsOf( process, mark ).size() );
   ProcessId other = process;
   ++other.startTime;
   EXPECT_TRUE( Agent::remnantsOf( other, mark ).empty() ) << "a process that got the number later";
   other = process;
   other.home = "another boot";
   EXPECT_TRUE( Agent::remnantsOf( other, mark ).empty() );
   EXPECT_TRUE( Agent::remnantsOf( {}, mark ).empty() );

   EXPECT_TRUE( children->remnantsEnd( process, mark ) );
   untilEnded();
   untilLooking( [&] { return !children->remnantsEnd( process, mark ); } );
}

TEST_F( RealChildren, areFoundByTheirMarkWhenTheirLeaderHasGone ) {
   const ProcessId process = leftByAnAgent( [this] {
      const ProcessId led = begin( "sleep 1000 & echo on; wait" );
      until( [this] { return out == "on\n"; } );
      return led;
   } );
   // As long as nobody has collected it, its number is proof enough.
   untilLooking( [&] { return Agent::remnantsOf( process, "MAINTD_RUN=other" ).empty(); } );
   EXPECT_EQ( 1u, Agent::remnantsOf( process, mark ).size() );
   untilLooking( [&] { return !children->remnantsEnd( process, mark ); } );
}

} // namespace
