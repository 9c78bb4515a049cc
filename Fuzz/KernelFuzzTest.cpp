// What the kernel says of links, VLANs, counters, addresses and routes, taken by the whole switch: whatever it is, what
// the listener is told keeps the promises that each switch makes.

#include "DataPlane/Linux/LinuxSwitch.h"
#include "DataPlane/RecordingListenerTest.h"
#include "Fuzz/Input.h"
#include "Fuzz/KernelStory.h"

namespace {

using namespace Fuzz;
using Got = DataPlane::Linux::Channel::Got;

/// A story is a list of steps, each a byte and what belongs to it.
class Story {
 public:
   explicit Story( Input input ) : input_( input ) {
      auto kernel = std::make_unique< StoryKernel >();
      kernel_ = kernel.get();
      made_ = Vel::make< DataPlane::Linux::LinuxSwitch >( loop_, std::move( kernel ) );
   }
   void tell() {
      for ( int steps = 0; !input_.empty() && steps < 1000; ++steps ) {
         step();
         check();
      }
      made_->stop();
   }

 private:
   /// Of a step: the lowest bits of its byte. The seeds are written with these numbers.
   enum Step {
      answerIs,    ///< table, datagram: is a part of the answer from now on
      answerBegin, ///< table: its answer is empty again
      start,
      event, ///< datagram
      turn,
      timeGoesOn, ///< eighths of a second
      readCounters,
      setDown, ///< which of the links that were told; with a snapshot before
      setUp,   ///< the same, with what was in the snapshot
      askRoutes,
      trouble,    ///< which one
      codeIs,     ///< of answers, an errno value
      snapshotIs, ///< text: what a setUp gives back from now on
      giveLeft,   ///< which of the links: what was in the snapshot, as if it had been left
      stepCount
   };

   void step() {
      switch ( input_.byte() % stepCount ) {
      case answerIs: {
         const auto table = static_cast< Table >( input_.byte() % tableCount );
         kernel_->tables[table].emplace_back( input_.sized() );
         break;
      }
      case answerBegin:
         kernel_->tables.erase( static_cast< Table >( input_.byte() % tableCount ) );
         break;
      case start:
         begin();
         break;
      case event:
         tell( Got::messages, input_.sized() );
         break;
      case turn:
         runTurn();
         break;
      case timeGoesOn:
         pass( input_.byte() / 8.0 );
         break;
      case readCounters:
         static_cast< void >( made_->countersRefresh( *pool_ ).ok() );
         break;
      case setDown:
         set( false );
         break;
      case setUp:
         set( true );
         break;
      case askRoutes:
         askForRoutes();
         break;
      case trouble:
         haveTrouble( input_.byte() );
         break;
      case codeIs:
         kernel_->code = input_.byte();
         break;
      case snapshotIs:
         snapshot_ = input_.sized();
         break;
      case giveLeft:
         giveBack();
         break;
      }
   }
   void begin() {
      // Everything is told anew.
      made_->stop();
      listener_ = DataPlane::RecordingListener();
      if ( !made_->start( listener_ ).ok() )
         listener_ = DataPlane::RecordingListener();
   }
   void tell( Got got, std::string_view bytes = {} ) {
      if ( const auto events = kernel_->events.lock() )
         events->push( got, bytes );
   }
   void runTurn() {
      loop_->post( [this] { loop_->stop(); } );
      loop_->run();
   }
   void pass( double seconds ) {
      time_->spend( seconds );
      runTurn();
   }
   const DataPlane::Link * chosen() {
      if ( listener_.links.empty() )
         return nullptr;
      return &std::next( listener_.links.begin(), input_.byte() % listener_.links.size() )->second;
   }
   void set( bool up ) {
      const DataPlane::Link * const link = chosen();
      if ( !link )
         return;
      if ( !up )
         snapshot_ = made_->linkSnapshot( link->intf ).text;
      made_->linkSet( ++requests_, link->intf, up, up ? snapshot_ : Vel::String() );
   }
   void giveBack() {
      const DataPlane::Link * const link = chosen();
      if ( !link )
         return;
      const Vel::String raised = made_->raisedByOthers( snapshot_ );
      require( made_->raisedByOthers( raised ) == raised, "what stays up is taken out once" );
      made_->linkRestore( ++requests_, link->intf, made_->snapshotsJoined( snapshot_, raised ) );
   }
   void askForRoutes() {
      const unsigned which = input_.byte() % 3;
      made_->routesAsk(
         { which == 0   ? ""
           : which == 1 ? "192.0.2.7"
                        : "2001:db8::7" },
         []( const DataPlane::RouteAnswer & answer ) {
            require( answer.table != nullptr, "an answer has a table" );
            for ( const DataPlane::RouteClass & routes : answer.table->classes )
               require( routes.destinations >= routes.examples.size(), "examples are destinations" );
            for ( const DataPlane::EqualHops & hops :
                  answer.way ? answer.way->choices : DataPlane::Choices() )
               for ( const DataPlane::NextHop & hop : hops )
                  require( hop.behind <= answer.way->behind.size(), "who is behind a port is told" );
         } );
   }
   void haveTrouble( unsigned which ) {
      switch ( which % 4 ) {
      case 0:
         return tell( Got::lost );
      case 1:
         return tell( Got::failed );
      case 2:
         ++kernel_->interruptedDumps;
         return;
      default:
         ++kernel_->refusedDumps;
         return;
      }
   }
   void check() {
      for ( const Vel::String & promise : listener_.broken )
         require( false, "a promise to the listener", promise );
   }

   Input input_;
   const Vel::Ptr< Cog::VirtualTime > time_ = Vel::make< Cog::VirtualTime >( 1.7e9 );
   const Vel::Ptr< Cog::EventLoop > loop_ = Vel::make< Cog::EventLoop >( time_ );
   const Vel::Ptr< VelPool::EntityManager > pool_ = Vel::make< VelPool::EntityManager >();
   StoryKernel * kernel_;
   DataPlane::RecordingListener listener_;
   Vel::Ptr< DataPlane::Linux::LinuxSwitch > made_;
   DataPlane::RequestId requests_ = 0;
   Vel::String snapshot_;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput( const std::uint8_t * data, std::size_t size ) {
   Story( Input( data, size ) ).tell();
   return 0;
}
