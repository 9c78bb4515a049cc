#include "Agent/Commands/RealChildren.h"

#include "Agent/Commands/DescriptorLimit.h"
#include "Agent/Commands/Processes.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>

namespace Agent {

namespace {

/// Bytes that are read at once, so that a child that never stops talking keeps nobody waiting.
constexpr std::size_t oneRead = 16 * 1024;
/// Bytes that may stand in a pipe when its writers have gone, and more.
constexpr std::size_t mostLeft = 1024 * 1024;
/// Above what a command finds open.
constexpr int firstFree = 10;
constexpr int keptDescriptor = 3;
constexpr int cannotRunStatus = 127;
/// From one look to the next at a child that has ended and cannot be collected yet. Each look goes through all processes.
constexpr long lookNanoseconds = 50'000'000;
/// For 5 seconds a child that has ended is asked how, while whoever traces it has not let go of it.
constexpr unsigned mostLooks = 100;

class Pipe {
 public:
   Pipe() {
      if ( pipe2( ends_.data(), O_CLOEXEC ) != 0 ) {
         error_ = errno;
         ends_ = { -1, -1 };
      }
   }
   ~Pipe() {
      for ( const int end : ends_ )
         if ( end >= 0 )
            close( end );
   }
   Pipe( const Pipe & ) = delete;
   Pipe & operator=( const Pipe & ) = delete;

   int error() const { return error_; }
   int out() const { return ends_[0]; }
   int in() const { return ends_[1]; }
   /// The caller's from now on, and never waits.
   int takeOut() { return take( 0 ); }
   int takeIn() { return take( 1 ); }

 private:
   int take( std::size_t end ) {
      fcntl( ends_[end], F_SETFL, O_NONBLOCK );
      return std::exchange( ends_[end], -1 );
   }
   std::array< int, 2 > ends_{ -1, -1 };
   int error_ = 0;
};

/// What a child needs between fork and exec, made before: there nothing may be allocated.
struct Plan {
   pid_t parent;
   std::array< int, 4 > standard; ///< becomes descriptors 0 to 3
   int go;                        ///< a byte comes when it may begin
   char * const * words;
   char * const * environment;
};

/// In the child.
[[noreturn]] void cannotRun() {
   const char * const reason = strerrordesc_np( errno );
   for ( const char * const text : { "cannot be run: ", reason ? reason : "unknown error", "\n" } )
      if ( write( STDERR_FILENO, text, strlen( text ) ) < 0 )
         break;
   _exit( cannotRunStatus );
}

/// Runs in the child, where only what is safe in a signal handler may be called.
[[noreturn]] void beTheChild( Plan plan ) {
   setsid();
   prctl( PR_SET_PDEATHSIG, SIGKILL );
   if ( getppid() != plan.parent )
      _exit( cannotRunStatus );
   for ( int signal = 1; signal < NSIG; ++signal )
      ::signal( signal, SIG_DFL );
   sigset_t none;
   sigemptyset( &none );
   sigprocmask( SIG_SETMASK, &none, nullptr );
   // Away from the numbers that they are to get.
   const int errors = plan.standard[STDERR_FILENO];
   bool all = true;
   const auto move = [&all]( int & descriptor ) {
      descriptor = fcntl( descriptor, F_DUPFD_CLOEXEC, firstFree );
      all = all && descriptor >= 0;
   };
   move( plan.go );
   for ( int & descriptor : plan.standard )
      move( descriptor );
   if ( !all ) {
      // What the agent has there is nothing for a command.
      dup2( errors, STDERR_FILENO );
      cannotRun();
   }
   for ( int i = 0; i <= keptDescriptor; ++i )
      dup2( plan.standard[static_cast< std::size_t >( i )], i );
   // The agent's locks and sockets are not to be held while this one waits.
   close_range( keptDescriptor + 1, static_cast< unsigned >( plan.go ) - 1, 0 );
   close_range( static_cast< unsigned >( plan.go ) + 1, ~0u, 0 );
   char byte;
   ssize_t got;
   do
      got = read( plan.go, &byte, 1 );
   while ( got < 0 && errno == EINTR );
   if ( got != 1 )
      _exit( cannotRunStatus );
   descriptorLimitRestore();
   umask( 022 );
   if ( chdir( "/" ) == 0 )
      execve( plan.words[0], plan.words, plan.environment );
   cannotRun();
}

/// Readable when the process has ended; negative: there is none, errno says why.
int processDescriptor( pid_t pid ) { return static_cast< int >( syscall( SYS_pidfd_open, pid, 0 ) ); }

/// The same of a process that was of a session a moment ago; negative: it is not any more, or errno says why.
int memberDescriptor( pid_t pid, pid_t leader ) {
   const int descriptor = processDescriptor( pid );
   if ( descriptor < 0 || isOfSession( pid, leader ) )
      return descriptor;
   close( descriptor );
   errno = ESRCH;
   return -1;
}

/// To all of the session that a process leads which has not been collected. Those that have left its group may end
/// meanwhile, and their numbers may become somebody else's.
void signalSession( pid_t leader, int signal ) {
   // One that has not come to lead its group yet has not begun either.
   if ( ::kill( -leader, signal ) != 0 )
      ::kill( leader, signal );
   for ( const pid_t pid : othersOfSession( leader, true ) )
      if ( const int descriptor = memberDescriptor( pid, leader ); descriptor >= 0 ) {
         syscall( SYS_pidfd_send_signal, descriptor, signal, nullptr, 0 );
         close( descriptor );
      }
}

/// \param error  of a call that makes something
Children::Held notHeld( int error ) {
   const bool scarce = error == EMFILE || error == ENFILE || error == EAGAIN || error == ENOMEM;
   return { std::strerror( error ), scarce, {} };
}

std::vector< char * > pointers( const std::vector< std::string > & texts ) {
   std::vector< char * > result;
   for ( const std::string & text : texts )
      result.push_back( const_cast< char * >( text.c_str() ) );
   result.push_back( nullptr );
   return result;
}

} // namespace

struct RealChildren::Child {
   Listener * listener = nullptr;
   pid_t pid = 0;
   int end = -1; ///< readable when it has ended, and then of another one of its session that is waited for
   int go = -1, kept = -1, input = -1, output = -1, errors = -1;
   std::string toWrite;      ///< of its input
   bool going = false;       ///< its input may be written
   bool patient = false;     ///< others of its session get the time to end by themselves
   bool leaderEnded = false; ///< not collected, so that nobody else gets the number of its session
   unsigned looks = 0;       ///< in vain, at how it has ended

   int & of( Stream stream ) { return stream == Stream::output ? output : errors; }
};

RealChildren::RealChildren( Vel::Ptr< Cog::EventLoop > loop )
   : loop_( std::move( loop ) ), lookTimer_( timerfd_create( CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK ) ) {
   // Refused, with the reason, if there is none.
   loop_->descriptorIs( lookTimer_, Cog::EventLoop::readable, [this]( Vel::U32 ) { handleLook(); } );
   ::signal( SIGPIPE, SIG_IGN );
   // Whoever has started the agent may have left it ignored, and then nobody is told how a child has ended.
   ::signal( SIGCHLD, SIG_DFL );
}

RealChildren::~RealChildren() {
   loop_->descriptorDel( lookTimer_ );
   close( lookTimer_ );
   for ( auto & [id, child] : children_ )
      drop( *child );
   droppedCollect();
}

// ---- start

Children::Held RealChildren::hold( Id id, const Program & program, Listener & listener ) {
   droppedCollect();
   Pipe input, output, errors, kept, go;
   for ( const Pipe * const pipe : { &input, &output, &errors, &kept, &go } )
      if ( pipe->error() )
         return notHeld( pipe->error() );
   const auto words = pointers( program.words );
   const auto environment = pointers( program.environment );
   const Plan plan{
      getpid(),
      { input.out(), output.in(), errors.in(), kept.out() },
      go.out(),
      words.data(),
      environment.data() };
   const pid_t pid = fork();
   if ( pid == 0 )
      beTheChild( plan );
   if ( pid < 0 )
      return notHeld( errno );

   auto child = std::make_unique< Child >();
   child->listener = &listener;
   child->pid = pid;
   child->end = processDescriptor( pid );
   const int error = errno;
   child->go = go.takeIn();
   child->kept = kept.takeIn();
   child->input = input.takeIn();
   child->output = output.takeOut();
   child->errors = errors.takeOut();
   child->toWrite = program.input;
   if ( child->end < 0 ) {
      drop( *child );
      return notHeld( error );
   }
   watch( id, *child );
   children_[id] = std::move( child );
   return { "", false, processOf( pid ) };
}

void RealChildren::watch( Id id, Child & child ) {
   loop_->descriptorIs( child.end, Cog::EventLoop::readable, [this, id]( Vel::U32 ) { handleEnd( id ); } );
   for ( const Stream stream : { Stream::output, Stream::errors } )
      loop_->descriptorIs( child.of( stream ), Cog::EventLoop::readable, [this, id, stream]( Vel::U32 ) {
         handleReadable( id, stream );
      } );
   loop_->descriptorIs( child.input, 0, [this, id]( Vel::U32 ) { handleInput( id ); } );
}

void RealChildren::go( Id id ) {
   const auto at = children_.find( id );
   if ( at == children_.end() || at->second->going )
      return;
   Child & child = *at->second;
   child.going = true;
   // If it has ended meanwhile, that is told as its end.
   [[maybe_unused]] const ssize_t written = write( child.go, "", 1 );
   close( std::exchange( child.go, -1 ) );
   handleInput( id );
}

void RealChildren::kept( Id id ) {
   if ( const auto at = children_.find( id ); at != children_.end() )
      // One that reads none of these bytes, and has recorded some 65,000 times, does not need any more.
      [[maybe_unused]]
      const ssize_t written = write( at->second->kept, "\n", 1 );
}

// ---- what comes and goes

void RealChildren::handleInput( Id id ) {
   Child & child = *children_.at( id );
   if ( child.input < 0 )
      return;
   bool over = false;
   while ( child.going && !child.toWrite.empty() && !over ) {
      const ssize_t written = write( child.input, child.toWrite.data(), child.toWrite.size() );
      if ( written > 0 )
         child.toWrite.erase( 0, static_cast< std::size_t >( written ) );
      else if ( errno == EAGAIN )
         return loop_->descriptorInterestIs( child.input, Cog::EventLoop::writable );
      else if ( errno != EINTR )
         over = true; // It does not want to read it, which is its own affair.
   }
   if ( !over && !child.going )
      return;
   loop_->descriptorDel( child.input );
   close( std::exchange( child.input, -1 ) );
}

bool RealChildren::readSome( int descriptor, std::string & bytes ) {
   bytes.resize( oneRead );
   const ssize_t got = read( descriptor, bytes.data(), bytes.size() );
   const bool again = got < 0 && ( errno == EAGAIN || errno == EINTR );
   bytes.resize( got > 0 ? static_cast< std::size_t >( got ) : 0 );
   return got <= 0 && !again;
}

void RealChildren::handleReadable( Id id, Stream stream ) {
   Child & child = *children_.at( id );
   int & descriptor = child.of( stream );
   std::string bytes;
   if ( readSome( descriptor, bytes ) ) {
      loop_->descriptorDel( descriptor );
      close( std::exchange( descriptor, -1 ) );
   } else if ( !bytes.empty() )
      child.listener->childSays( id, stream, bytes );
}

// ---- the end

void RealChildren::terminate( Id id ) {
   const auto at = children_.find( id );
   if ( at == children_.end() )
      return;
   Child & child = *at->second;
   // What is left of one that has ended by itself is being ended by force.
   child.patient = !child.leaderEnded;
   signalSession( child.pid, SIGTERM );
}

void RealChildren::kill( Id id ) {
   const auto at = children_.find( id );
   if ( at == children_.end() )
      return;
   at->second->patient = false;
   signalSession( at->second->pid, SIGKILL );
}

/// The leader has ended. Until it is collected its number stands for its session and for nobody else's.
void RealChildren::handleEnd( Id id ) {
   children_.at( id )->leaderEnded = true;
   handleOthers( id );
}

/// Asked to end, the others of its session get the time that kill() gives them. The end is told when none is left.
void RealChildren::handleOthers( Id id ) {
   const auto at = children_.find( id );
   if ( at == children_.end() )
      return;
   Child & child = *at->second;
   if ( child.end >= 0 ) {
      loop_->descriptorDel( child.end );
      close( std::exchange( child.end, -1 ) );
   }
   for ( auto others = othersOfSession( child.pid, false ); !others.empty();
         others = othersOfSession( child.pid, false ) ) {
      if ( !child.patient )
         signalSession( child.pid, SIGKILL );
      child.end = memberDescriptor( others.front(), child.pid );
      if ( child.end >= 0 )
         return loop_->descriptorIs(
            child.end, Cog::EventLoop::readable, [this, id]( Vel::U32 ) { handleOthers( id ); } );
      if ( errno != ESRCH )
         return lookAgain( id );
   }
   if ( Ending ending; collect( child, ending ) )
      finish( id, ending );
   else
      lookAgain( id );
}

void RealChildren::lookAgain( Id id ) {
   if ( looking_.empty() ) {
      itimerspec when{};
      when.it_value.tv_nsec = lookNanoseconds;
      timerfd_settime( lookTimer_, 0, &when, nullptr );
   }
   looking_.insert( id );
}

void RealChildren::handleLook() {
   Vel::U64 expirations;
   if ( read( lookTimer_, &expirations, sizeof expirations ) < 0 )
      return;
   for ( const Id id : std::exchange( looking_, {} ) )
      handleOthers( id );
}

bool RealChildren::collect( Child & child, Ending & ending ) {
   siginfo_t info{};
   if ( waitid( P_PID, static_cast< id_t >( child.pid ), &info, WEXITED | WNOHANG ) != 0 )
      ending.known = false; // Somebody else has collected it.
   else if ( info.si_pid != 0 )
      ( info.si_code == CLD_EXITED ? ending.status : ending.signal ) = info.si_status;
   else if ( ++child.looks < mostLooks )
      return false; // Whoever traces it is told first.
   else {
      ending.known = false;
      dropped_.push_back( child.pid );
   }
   child.pid = 0;
   return true;
}

/// Those whom nobody asks for any more. One that does not end, because it waits inside the kernel or somebody traces it,
/// is waited for by nobody; it is collected some other time, or when the agent has ended.
void RealChildren::droppedCollect() {
   std::erase_if( dropped_, []( pid_t pid ) { return waitpid( pid, nullptr, WNOHANG ) != 0; } );
}

void RealChildren::finish( Id id, const Ending & ending ) {
   const auto at = children_.find( id );
   const std::unique_ptr< Child > child = std::move( at->second );
   children_.erase( at );
   for ( const Stream stream : { Stream::output, Stream::errors } ) {
      std::string bytes;
      std::size_t left = 0;
      while ( child->of( stream ) >= 0 && left < mostLeft && !readSome( child->of( stream ), bytes ) &&
              !bytes.empty() ) {
         left += bytes.size();
         child->listener->childSays( id, stream, bytes );
      }
   }
   Listener * const listener = child->listener;
   drop( *child );
   listener->childEnded( id, ending );
}

/// Ends what is left of it and lets go of its descriptors.
void RealChildren::drop( Child & child ) {
   if ( child.pid > 0 ) {
      signalSession( child.pid, SIGKILL );
      dropped_.push_back( child.pid );
   }
   for ( int * const descriptor :
         { &child.end, &child.go, &child.kept, &child.input, &child.output, &child.errors } )
      if ( *descriptor >= 0 ) {
         loop_->descriptorDel( *descriptor );
         close( std::exchange( *descriptor, -1 ) );
      }
}

void RealChildren::forget( Listener & listener ) {
   for ( auto at = children_.begin(); at != children_.end(); ) {
      if ( at->second->listener == &listener ) {
         drop( *at->second );
         at = children_.erase( at );
      } else
         ++at;
   }
}

// ---- what an earlier agent has left

bool RealChildren::remnantsEnd( const ProcessId & process, const std::string & mark ) {
   const auto left = remnantsOf( process, mark );
   for ( const pid_t pid : left )
      ::kill( pid, SIGKILL );
   return !left.empty();
}

} // namespace Agent
