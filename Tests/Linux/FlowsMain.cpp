#include "Tests/Linux/Flows.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <thread>

/// Flows NAMESPACE ADDRESS NAMESPACE ADDRESS FLOWS BITS-PER-SECOND SECONDS
///
/// Sends that much each way between the two. Prints a line each second, so that somebody can watch:
///    now there SENT RECEIVED back SENT RECEIVED          in packets
/// and when the time is over or at SIGTERM, after what is under way had time to come:
///    there sent N received N lost N overruns N refused N bps N
///    back  sent N received N lost N overruns N refused N bps N
///    lost there|back FLOW SECONDS-SINCE-1970             for each packet, up to a bound
/// Ends with 0 unless it could not begin; whether losses are bad is for the caller to say.
namespace {

constexpr std::size_t mostLosses = 10'000;

void print( const char * name, const Flows::Direction & direction ) {
   const Flows::Summary all = direction.summary();
   std::cout << name << " sent " << all.sent << " received " << all.received << " lost "
             << all.sent - all.received << " overruns " << all.overruns << " refused " << all.refused
             << " bps " << static_cast< std::uint64_t >( all.rate ) << '\n';
   for ( const Flows::Loss & loss : direction.losses( mostLosses ) ) {
      char time[32];
      std::snprintf(
         time, sizeof time, "%lld.%09lld", static_cast< long long >( loss.sentAt / 1'000'000'000 ),
         static_cast< long long >( loss.sentAt % 1'000'000'000 ) );
      std::cout << "lost " << name << ' ' << loss.flow << ' ' << time << '\n';
   }
}

int run( char ** argument ) {
   const int flows = std::atoi( argument[5] );
   const double rate = std::atof( argument[6] );
   const double seconds = std::atof( argument[7] );
   if ( flows < 1 || flows > 1000 || !( rate > 0 ) || rate > 100e6 || !( seconds > 0 ) || seconds > 600 ) {
      std::cerr << "Flows: 1 to 1000 flows, up to 100 Mbit/s, up to 600 s\n";
      return 2;
   }
   // Blocked before the threads begin, so that they inherit it: the signal is waited for below and nowhere else.
   sigset_t ends;
   sigemptyset( &ends );
   sigaddset( &ends, SIGTERM );
   sigaddset( &ends, SIGINT );
   pthread_sigmask( SIG_BLOCK, &ends, nullptr );

   Flows::Traffic traffic(
      { argument[1], argument[2] }, { argument[3], argument[4] }, unsigned( flows ), rate, seconds );
   std::atomic< bool > stopSending = false;
   std::atomic< bool > stopReceiving = false;
   std::atomic< bool > allSent = false;
   std::thread receiver( [&] { traffic.receive( stopReceiving ); } );
   std::thread sender( [&] {
      traffic.send( stopSending );
      allSent = true;
   } );
   while ( !allSent ) {
      const timespec second{ 1, 0 };
      if ( sigtimedwait( &ends, nullptr, &second ) > 0 )
         stopSending = true;
      std::cout << "now there " << traffic.there().sent() << ' ' << traffic.there().received() << " back "
                << traffic.back().sent() << ' ' << traffic.back().received() << std::endl;
   }
   sender.join();
   stopReceiving = true;
   receiver.join();
   print( "there", traffic.there() );
   print( "back", traffic.back() );
   return 0;
}

} // namespace

int main( int argc, char ** argv ) {
   if ( argc != 8 ) {
      std::cerr << "usage: Flows NAMESPACE ADDRESS NAMESPACE ADDRESS FLOWS BITS-PER-SECOND SECONDS\n";
      return 2;
   }
   try {
      return run( argv );
   } catch ( const std::exception & error ) {
      std::cerr << "Flows: " << error.what() << '\n';
      return 1;
   }
}
