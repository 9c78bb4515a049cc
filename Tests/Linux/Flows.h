#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

/// Many flows of UDP between two network namespaces, both ways, of which every packet is accounted for: when it was
/// sent, and whether it came. One process has all four ends, so that what was sent and what came are compared packet by
/// packet and no clock is compared with another. Bounded in rate, time and number.
///
/// A loss is a packet that was sent and did not come. The time of a loss is when the packet was sent, by the machine's
/// clock, as programs that show the kernel's events with a time have it. Packets that came as far as the receiver's
/// buffer and found it full are lost too, and counted separately: they tell of the machine, not of the links.
namespace Flows {

/// Owns a file descriptor; none if negative.
class Descriptor {
 public:
   explicit Descriptor( int descriptor = -1 ) : descriptor_( descriptor ) {}
   Descriptor( Descriptor && other ) noexcept : descriptor_( std::exchange( other.descriptor_, -1 ) ) {}
   Descriptor & operator=( Descriptor && other ) noexcept {
      std::swap( descriptor_, other.descriptor_ );
      return *this;
   }
   ~Descriptor();
   int get() const { return descriptor_; }

 private:
   int descriptor_;
};

struct End {
   std::string networkNamespace; ///< its name, as `ip netns` has it
   std::string address;          ///< of IP version 4, there
};

struct Summary {
   std::uint64_t sent = 0; ///< packets
   std::uint64_t received = 0;
   std::uint64_t overruns = 0; ///< came, and found the receiver's buffer full
   std::uint64_t refused = 0;  ///< could not be sent at all
   double rate = 0;            ///< sent, bits per second of whole Ethernet frames
};

struct Loss {
   unsigned flow = 0;
   std::int64_t sentAt = 0; ///< nanoseconds since 1970
};

/// All flows of one direction. One thread sends and another one receives; losses and summary are for when both have
/// ended, the counts for any time.
class Direction {
 public:
   /// At most `limit` packets will be sent. Throws std::runtime_error where sockets cannot be had. Leaves the calling
   /// thread in the namespace of `from`.
   Direction( const End & from, const End & to, unsigned flows, std::uint64_t limit );

   void send();    ///< the next packet, in the flow whose turn it is
   void receive(); ///< whatever has come
   int receiver() const { return receiver_.get(); }

   std::uint64_t sent() const { return sent_.load( std::memory_order_relaxed ); }
   std::uint64_t received() const { return count_.load( std::memory_order_relaxed ); }
   Summary summary() const;
   std::vector< Loss > losses( std::size_t atMost ) const; ///< in the order of sending

 private:
   unsigned flowOf( std::uint64_t number ) const { return unsigned( number % senders_.size() ); }

   static constexpr std::uint64_t magic_ = 0x6d61696e74666c6f;
   std::vector< Descriptor > senders_; // one a flow
   Descriptor receiver_;
   std::vector< std::int64_t > sentAt_;   // by number; the sending thread's
   std::vector< std::uint8_t > received_; // by number: how often; the receiving thread's
   std::vector< char > packet_;
   std::atomic< std::uint64_t > sent_ = 0;
   std::atomic< std::uint64_t > count_ = 0;
   std::uint64_t refused_ = 0;
   std::uint32_t overruns_ = 0;
};

/// Both directions at one rate each.
class Traffic {
 public:
   /// rate: bits per second each way, of whole Ethernet frames as counters of links have them.
   Traffic( const End & a, const End & b, unsigned flows, double rate, double seconds );

   void send( const std::atomic< bool > & stop ); ///< until all is sent, or it is told to stop
   void
   receive( const std::atomic< bool > & stop ); ///< until it is told to stop and what is under way has come
   const Direction & there() const { return there_; }
   const Direction & back() const { return back_; }

 private:
   bool allCame() const;

   double framesPerSecond_;
   std::uint64_t limit_; // packets each way
   Direction there_;
   Direction back_;
};

} // namespace Flows
