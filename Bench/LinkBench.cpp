#include "Bench/RealLinks.h"
#include "DataPlane/Linux/LinuxSwitch.h"
#include "Platform/Cog/TimeSource.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <iostream>

/// What the switch itself costs on real links.
/// Counters: one pass, from the kernel into the pool. Floor: the bare dump of the counters, octets read and dropped.
/// Overrun: the turn that sees it, in which all links are read again and compared with what was told. Floor: the bare
/// dump of the links.
namespace {

using DataPlane::Linux::Channel;
using DataPlane::Linux::Kernel;

Bench::RealLinks links;

class Nobody final : public DataPlane::Listener {
 public:
   void linkIs( const DataPlane::Link & link ) override { upLinks += link.operUp; }
   void linkDel( const Wire::IntfId & ) override {}
   void portChannelIs( const Wire::IntfId &, const Wire::IntfId & ) override {}
   void vlanMemberIs( Vel::U16, const Wire::IntfId & ) override {}
   void vlanMemberDel( Vel::U16, const Wire::IntfId & ) override {}
   void linkSetDone( DataPlane::RequestId, const DataPlane::LinkSetResult & ) override {}
   void linkSetRestores( DataPlane::RequestId ) override {}
   void rereadIs( bool ) override {}
   void resynchronised() override { ++overruns; }
   void healthIs( const DataPlane::Health & ) override {}

   int upLinks = 0;
   int overruns = 0;
};

/// The kernel, whose channel for events overruns when it is told to.
class Overrunning final : public Kernel {
 public:
   DataPlane::Linux::Opened open( bool toldOfLinks ) override {
      DataPlane::Linux::Opened opened = kernel_->open( toldOfLinks );
      if ( toldOfLinks && opened.channel )
         opened.channel = std::make_unique< Events >( *this, std::move( opened.channel ) );
      return opened;
   }
   DataPlane::Linux::Opened openRouteNews( Vel::U8 family ) override {
      return kernel_->openRouteNews( family );
   }
   std::optional< double > speed( const Vel::String & link ) override { return kernel_->speed( link ); }
   DataPlane::LinkSnapshot bootId() override { return kernel_->bootId(); }
   void overrun() { eventfd_write( current_->descriptor(), 1 ); }

 private:
   class Events final : public Channel {
    public:
      Events( Overrunning & owner, std::unique_ptr< Channel > inner )
         : inner_( std::move( inner ) ), descriptor_( eventfd( 0, EFD_CLOEXEC | EFD_NONBLOCK ) ) {
         owner.current_ = this;
      }
      ~Events() override { close( descriptor_ ); }
      int descriptor() const override { return descriptor_; }
      Vel::U32 port() const override { return inner_->port(); }
      Received receive() override {
         eventfd_t value;
         if ( eventfd_read( descriptor_, &value ) == 0 )
            return { Got::lost, nullptr, 0, {} };
         return inner_->receive();
      }
      DataPlane::Outcome send( const DataPlane::Linux::Bytes & message ) override {
         return inner_->send( message );
      }

    private:
      std::unique_ptr< Channel > inner_;
      int descriptor_;
   };

   std::unique_ptr< Kernel > kernel_ = DataPlane::Linux::kernelNew();
   Events * current_ = nullptr;
};

class World {
 public:
   World() {
      if ( const DataPlane::Outcome outcome = made->start( nobody ); !outcome.ok() )
         throw std::runtime_error( outcome.text() );
   }
   void turn() {
      loop->post( [this] { loop->stop(); } );
      loop->run();
   }

   const Vel::Ptr< Cog::VirtualTime > time = Vel::make< Cog::VirtualTime >( 0 );
   const Vel::Ptr< Cog::EventLoop > loop = Vel::make< Cog::EventLoop >( time );
   Overrunning * const kernel = new Overrunning;
   Nobody nobody;
   const Vel::Ptr< DataPlane::Linux::LinuxSwitch > made =
      Vel::make< DataPlane::Linux::LinuxSwitch >( loop, std::unique_ptr< Kernel >( kernel ) );
   const Vel::Ptr< VelPool::EntityManager > pool = Vel::make< VelPool::EntityManager >();
};

void floorOf( benchmark::State & state, Bench::BareDump::Of of, int count ) {
   links.countIs( count );
   Bench::BareDump dump( of );
   int seen = 0;
   for ( auto _ : state )
      seen = dump.run();
   if ( seen < count )
      state.SkipWithError( "links are missing from the dump" );
   state.SetItemsProcessed( state.iterations() * count );
}

void counters( benchmark::State & state, int count ) {
   links.countIs( count );
   World world;
   bool ok = true;
   for ( auto _ : state )
      ok &= world.made->countersRefresh( *world.pool ).ok();
   if ( !ok || world.pool->intfCounterDirs() != static_cast< Vel::U32 >( count ) )
      state.SkipWithError( "ports are missing from the pool" );
   state.SetItemsProcessed( state.iterations() * count );
   state.SetLabel( "at most 1.5 x" );
}

void overrun( benchmark::State & state, int count ) {
   links.countIs( count );
   World world;
   for ( auto _ : state ) {
      // Several in a row would have to wait.
      world.time->spend( 2 * DataPlane::Linux::LinuxSwitch::recoveryPeriod );
      world.kernel->overrun();
      world.turn();
   }
   if ( world.nobody.overruns != state.iterations() || world.nobody.upLinks < count )
      state.SkipWithError( "not each overrun was made up for" );
   state.SetItemsProcessed( state.iterations() * count );
   state.SetLabel( "at most 2 x" );
}

} // namespace

int main( int argc, char ** argv ) {
   if ( !links.begin() ) {
      std::cout << "skipped: links of the kernel: needs the right to make a network namespace\n";
      return 0;
   }
   const auto add = []( const std::string & name, const auto & measured ) {
      benchmark::RegisterBenchmark( name.c_str(), measured )->MeasureProcessCPUTime();
   };
   using Of = Bench::BareDump::Of;
   for ( const auto & [count, text] : { std::pair( 500, "500" ), { 2000, "2,000" }, { 8000, "8,000" } } ) {
      const std::string row = std::string( "counters of a link, " ) + text + " links";
      add( row + "/floor", [count = count]( benchmark::State & s ) { floorOf( s, Of::counters, count ); } );
      add( row + "/ours", [count = count]( benchmark::State & s ) { counters( s, count ); } );
      const std::string other = std::string( "link after an overrun, " ) + text + " links";
      add( other + "/floor", [count = count]( benchmark::State & s ) { floorOf( s, Of::links, count ); } );
      add( other + "/ours", [count = count]( benchmark::State & s ) { overrun( s, count ); } );
   }
   benchmark::Initialize( &argc, argv );
   benchmark::RunSpecifiedBenchmarks();
}
