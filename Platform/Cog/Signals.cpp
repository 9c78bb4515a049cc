#include "Platform/Cog/Signals.h"

#include "Platform/Vel/Text.h"

#include <cerrno>
#include <cstring>

#include <sys/signalfd.h>
#include <unistd.h>

namespace Cog {

Signals::Signals( EventLoop & loop, std::initializer_list< int > signals, Handler handler )
   : loop_( loop ), handler_( std::move( handler ) ) {
   sigset_t set;
   sigemptyset( &set );
   for ( const int signal : signals )
      sigaddset( &set, signal );
   descriptor_ = signalfd( -1, &set, SFD_NONBLOCK | SFD_CLOEXEC );
   if ( descriptor_ < 0 )
      throw Vel::InternalException( Vel::text( "cannot watch signals: ", std::strerror( errno ) ) );
   pthread_sigmask( SIG_BLOCK, &set, &before_ );
   try {
      loop_.descriptorIs( descriptor_, EventLoop::readable, [this]( Vel::U32 ) { handleReadable(); } );
   } catch ( ... ) {
      release();
      throw;
   }
}

Signals::~Signals() {
   loop_.descriptorDel( descriptor_ );
   release();
}

void Signals::release() {
   close( descriptor_ );
   pthread_sigmask( SIG_SETMASK, &before_, nullptr );
}

/// One signal a turn: the handler may throw, or destroy this object, which is why it is called as a copy.
void Signals::handleReadable() {
   signalfd_siginfo info;
   if ( read( descriptor_, &info, sizeof info ) != static_cast< ssize_t >( sizeof info ) )
      return;
   const Handler handler = handler_;
   Signal signal{ static_cast< int >( info.ssi_signo ), std::nullopt };
   // What the kernel sends of its own accord has a positive code.
   if ( info.ssi_code <= 0 )
      signal.sender = info.ssi_uid;
   handler( signal );
}

} // namespace Cog
