#include "Tests/Linux/Flows.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <stdexcept>
#include <thread>

namespace {

constexpr std::size_t headers = 14 + 20 + 8;
constexpr std::size_t frame = 1000;
constexpr std::chrono::milliseconds step( 2 );
constexpr std::chrono::milliseconds longestWay( 500 );
constexpr std::uint64_t longestBurst = 64;
constexpr int receiveBuffer = 32 << 20;

/// What a packet carries; the rest of it is zero. Both ends are this process.
struct Stamp {
   std::uint64_t magic = 0;
   std::uint64_t number = 0;
};

[[noreturn]] void fail( const std::string & what ) {
   throw std::runtime_error( what + ": " + std::strerror( errno ) );
}

/// With a port of the kernel's choice.
sockaddr_in addressOf( const Flows::End & end ) {
   sockaddr_in address{};
   address.sin_family = AF_INET;
   if ( inet_pton( AF_INET, end.address.c_str(), &address.sin_addr ) != 1 )
      throw std::runtime_error( "not an address of IP version 4: " + end.address );
   return address;
}

/// A socket stays in the namespace that it was opened in.
void goTo( const std::string & networkNamespace ) {
   const std::string path = "/run/netns/" + networkNamespace;
   const Flows::Descriptor descriptor( open( path.c_str(), O_RDONLY | O_CLOEXEC ) );
   if ( descriptor.get() < 0 || setns( descriptor.get(), CLONE_NEWNET ) != 0 )
      fail( "cannot go to the namespace " + networkNamespace );
}

Flows::Descriptor boundSocket( const Flows::End & end ) {
   Flows::Descriptor descriptor( socket( AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 ) );
   const sockaddr_in address = addressOf( end );
   if (
      descriptor.get() < 0 ||
      bind( descriptor.get(), reinterpret_cast< const sockaddr * >( &address ), sizeof address ) != 0 )
      fail( "cannot use " + end.address + " in " + end.networkNamespace );
   return descriptor;
}

std::int64_t now() {
   timespec time{};
   clock_gettime( CLOCK_REALTIME, &time );
   return std::int64_t( time.tv_sec ) * 1'000'000'000 + time.tv_nsec;
}

} // namespace

namespace Flows {

Descriptor::~Descriptor() {
   if ( descriptor_ >= 0 )
      close( descriptor_ );
}

Direction::Direction( const End & from, const End & to, unsigned flows, std::uint64_t limit )
   : sentAt_( limit ), received_( limit ), packet_( frame - headers ) {
   goTo( to.networkNamespace );
   receiver_ = boundSocket( to );
   const int yes = 1;
   if (
      setsockopt( receiver_.get(), SOL_SOCKET, SO_RCVBUFFORCE, &receiveBuffer, sizeof receiveBuffer ) != 0 ||
      setsockopt( receiver_.get(), SOL_SOCKET, SO_RXQ_OVFL, &yes, sizeof yes ) != 0 )
      fail( "cannot set up the receiver" );
   sockaddr_in address{};
   socklen_t size = sizeof address;
   if ( getsockname( receiver_.get(), reinterpret_cast< sockaddr * >( &address ), &size ) != 0 )
      fail( "cannot tell where to send" );
   goTo( from.networkNamespace );
   for ( unsigned flow = 0; flow < flows; ++flow ) {
      Descriptor sender = boundSocket( from );
      if ( connect( sender.get(), reinterpret_cast< const sockaddr * >( &address ), sizeof address ) != 0 )
         fail( "no way from " + from.address + " to " + to.address );
      senders_.push_back( std::move( sender ) );
   }
}

void Direction::send() {
   const std::uint64_t number = sent_.load( std::memory_order_relaxed );
   if ( number == sentAt_.size() )
      return;
   const Stamp stamp{ magic_, number };
   std::memcpy( packet_.data(), &stamp, sizeof stamp );
   sentAt_[number] = now();
   // What cannot be sent is lost like what gets lost on the way: to whoever waits for it that is the same.
   if ( ::send( senders_[flowOf( number )].get(), packet_.data(), packet_.size(), 0 ) < 0 )
      ++refused_;
   sent_.store( number + 1, std::memory_order_relaxed );
}

void Direction::receive() {
   char data[frame];
   alignas( cmsghdr ) char control[CMSG_SPACE( sizeof( std::uint32_t ) )];
   for ( ;; ) {
      iovec part{ data, sizeof data };
      msghdr message{};
      message.msg_iov = &part;
      message.msg_iovlen = 1;
      message.msg_control = control;
      message.msg_controllen = sizeof control;
      const ssize_t size = recvmsg( receiver_.get(), &message, 0 );
      if ( size < 0 )
         return;
      for ( cmsghdr * each = CMSG_FIRSTHDR( &message ); each; each = CMSG_NXTHDR( &message, each ) )
         if ( each->cmsg_level == SOL_SOCKET && each->cmsg_type == SO_RXQ_OVFL )
            std::memcpy( &overruns_, CMSG_DATA( each ), sizeof overruns_ );
      Stamp stamp;
      if ( static_cast< std::size_t >( size ) < sizeof stamp )
         continue;
      std::memcpy( &stamp, data, sizeof stamp );
      if ( stamp.magic != magic_ || stamp.number >= received_.size() )
         continue;
      if ( received_[stamp.number]++ == 0 )
         count_.fetch_add( 1, std::memory_order_relaxed );
   }
}

Summary Direction::summary() const {
   Summary summary;
   summary.sent = sent();
   summary.received = received();
   summary.overruns = overruns_;
   summary.refused = refused_;
   if ( summary.sent > 1 ) {
      const double seconds = double( sentAt_[summary.sent - 1] - sentAt_[0] ) / 1e9;
      summary.rate = double( summary.sent - 1 ) * frame * 8 / seconds;
   }
   return summary;
}

std::vector< Loss > Direction::losses( std::size_t atMost ) const {
   std::vector< Loss > losses;
   for ( std::uint64_t number = 0; number < sent() && losses.size() < atMost; ++number )
      if ( received_[number] == 0 )
         losses.push_back( { flowOf( number ), sentAt_[number] } );
   return losses;
}

Traffic::Traffic( const End & a, const End & b, unsigned flows, double rate, double seconds )
   : framesPerSecond_( rate / 8 / frame ),
     limit_( std::uint64_t( framesPerSecond_ * seconds ) ),
     there_( a, b, flows, limit_ ),
     back_( b, a, flows, limit_ ) {}

void Traffic::send( const std::atomic< bool > & stop ) {
   const auto start = std::chrono::steady_clock::now();
   std::uint64_t sent = 0;
   for ( auto next = start; sent < limit_ && !stop; next += step ) {
      std::this_thread::sleep_until( next );
      // As many as are due by now, however late this is, so that the rate stays; but not all at once, since what would
      // then overflow is the machine and not a link.
      const std::chrono::duration< double > elapsed = std::chrono::steady_clock::now() - start;
      const auto due = std::min( std::uint64_t( elapsed.count() * framesPerSecond_ ), limit_ );
      for ( const std::uint64_t end = std::min( due, sent + longestBurst ); sent < end; ++sent ) {
         there_.send();
         back_.send();
      }
   }
}

void Traffic::receive( const std::atomic< bool > & stop ) {
   pollfd both[] = { { there_.receiver(), POLLIN, 0 }, { back_.receiver(), POLLIN, 0 } };
   const auto turn = [&] {
      poll( both, 2, 50 );
      there_.receive();
      back_.receive();
   };
   while ( !stop )
      turn();
   const auto end = std::chrono::steady_clock::now() + longestWay;
   while ( !allCame() && std::chrono::steady_clock::now() < end )
      turn();
}

bool Traffic::allCame() const {
   return there_.received() == there_.sent() && back_.received() == back_.sent();
}

} // namespace Flows
