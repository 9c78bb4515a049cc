#include "DataPlane/Linux/LinuxSwitch.h"

#include "DataPlane/Linux/Factory.h"

#include <cerrno>
#include <limits>

namespace DataPlane {

Vel::Ptr< Switch > switchNewLinux( const Vel::Ptr< Cog::EventLoop > & loop ) {
   return Vel::make< Linux::LinuxSwitch >( loop, Linux::kernelNew() );
}

namespace Linux {

namespace {
constexpr double never = std::numeric_limits< double >::infinity();
}

LinuxSwitch::LinuxSwitch( Vel::Ptr< Cog::EventLoop > loop, std::unique_ptr< Kernel > kernel )
   : loop_( std::move( loop ) ),
     kernel_( std::move( kernel ) ),
     dumps_( *kernel_ ),
     requests_( [this] { later( [this] { handleAnswers(); } ); } ),
     recoveredAt_( -never ),
     recoveryTime_( never ) {
   links_.listenerIs( &membership_ );
}

LinuxSwitch::~LinuxSwitch() { stop(); }

// Start and end.

Outcome LinuxSwitch::start( Listener & listener ) {
   stop();
   const LinkSnapshot id = kernel_->bootId();
   if ( !id.outcome.ok() )
      return id.outcome;
   bootId_ = id.text;
   running_ = std::make_shared< int >();
   listener_ = &listener;
   membership_.listenerIs( listener_ );
   loop_->drivenIs( *this, Vel::Clock::Phase::tasks );
   // Events first: what changes while links are dumped is told again afterwards rather than missed.
   Outcome outcome = openEvents();
   if ( outcome.ok() )
      outcome = openAnswers();
   if ( outcome.ok() )
      outcome = dumpLinks();
   if ( outcome.ok() )
      tellHealth();
   else
      stop();
   return outcome;
}

void LinuxSwitch::stop() {
   if ( !running_ )
      return;
   running_.reset();
   loop_->drivenDel( *this );
   restoring_.clear();
   lastAsked_.clear();
   close( events_ );
   close( answers_ );
   dumps_.close();
   requests_.clear();
   membership_.listenerIs( nullptr );
   links_.clear();
   vlans_.clear();
   listener_ = nullptr;
   health_ = {};
   trouble_.clear();
   missed_ = false;
   losses_ = 0;
   recoveredAt_ = -never;
   recoveryTime_ = never;
   lostRoutes_.forget();
}

Outcome LinuxSwitch::openEvents() {
   Opened opened = kernel_->open( true );
   if ( !opened.channel )
      return opened.outcome;
   events_ = std::move( opened.channel );
   loop_->descriptorIs( events_->descriptor(), loop_->readable, [this]( Vel::U32 ) { handleEvents(); } );
   return {};
}

Outcome LinuxSwitch::openAnswers() {
   Opened opened = kernel_->open( false );
   if ( !opened.channel )
      return opened.outcome;
   answers_ = std::move( opened.channel );
   requests_.channelIs( answers_.get() );
   loop_->descriptorIs( answers_->descriptor(), loop_->readable, [this]( Vel::U32 ) { handleAnswers(); } );
   return {};
}

void LinuxSwitch::close( std::unique_ptr< Channel > & channel ) {
   if ( !channel )
      return;
   loop_->descriptorDel( channel->descriptor() );
   channel.reset();
}

void LinuxSwitch::later( std::function< void() > act ) {
   loop_->post( [act = std::move( act ), running = std::weak_ptr( running_ )] {
      if ( !running.expired() )
         act();
   } );
}

// Links.

/// Whether all that there are have been taken.
bool LinuxSwitch::handleEvents() {
   for ( int left = maxEventsPerTurn; events_; --left ) {
      if ( left == 0 ) {
         settle();
         return false;
      }
      const Channel::Received received = events_->receive();
      if ( received.got == Channel::Got::nothing )
         break;
      if ( received.got != Channel::Got::messages ) {
         // What is left in the channel is older than the links as they are read now. And the kernel goes on dropping
         // events, without saying so again, until an overrun channel has been emptied.
         missed_ = true;
         const Vel::String error = received.error;
         close( events_ );
         membership_.settle();
         if ( received.got == Channel::Got::lost )
            handleLoss();
         else
            degrade( "cannot hear of links: " + error );
         return true;
      }
      forEachMessage( received.begin, received.size, [this]( const nlmsghdr & message ) {
         take( message );
         return true;
      } );
   }
   settle();
   return true;
}

void LinuxSwitch::take( const nlmsghdr & event ) {
   if ( const std::optional< LinkEvent > link = parseLink( event ) ) {
      if ( !link->removed )
         return links_.linkIs( link->link );
      links_.linkDel( link->link.ifIndex );
      vlans_.linkDel( link->link.ifIndex );
   } else if ( const std::optional< VlanEvent > vlan = parseVlan( event ) ) {
      vlans_.eventIs( *vlan );
   }
}

Outcome LinuxSwitch::dumpLinks() {
   std::vector< LinkMessage > links;
   Outcome outcome = dumps_.whole(
      linkDumpRequest(), "cannot read the links", [&] { links.clear(); },
      [&]( const nlmsghdr & message ) {
         const std::optional< LinkEvent > event = parseLink( message );
         if ( event && !event->removed )
            links.push_back( event->link );
      } );
   if ( !outcome.ok() )
      return outcome;
   outcome = dumpVlans();
   if ( !outcome.ok() )
      return outcome;
   links_.dumpIs( links );
   membership_.settle();
   return {};
}

/// A kernel without VLANs of bridges refuses it as not supported. Others go through the links by their position: one that
/// goes meanwhile hides the VLANs of another, and of that the dump bears no mark.
Outcome LinuxSwitch::dumpVlans() {
   VlansOfLinks vlans, before;
   const Outcome outcome = dumps_.agreed(
      vlanDumpRequest(), "cannot read the VLANs", [&] { before = std::exchange( vlans, {} ); },
      [&]( const nlmsghdr & message ) {
         if ( const std::optional< VlanEvent > event = parseVlan( message ) )
            Linux::take( *event, vlans );
      },
      [&] { return vlans == before; } );
   const bool unknown = dumps_.code() == EOPNOTSUPP;
   if ( !outcome.ok() && !unknown )
      return outcome;
   if ( unknown )
      vlans_.clear();
   else
      vlans_.dumpIs( std::move( vlans ) );
   return {};
}

/// All news that there were have been taken.
void LinuxSwitch::settle() {
   Outcome outcome;
   // If that has failed, it has its time.
   if ( recoveryTime_ == never && links_.inDoubt() )
      outcome = dumpLinks();
   else if ( recoveryTime_ == never && vlans_.inDoubt() )
      outcome = dumpVlans();
   membership_.settle();
   if ( outcome.ok() )
      tellHealth();
   else
      degrade( outcome.text() );
}

/// At once, unless news are lost again and again: with a small buffer and links that flap without end there would be
/// nothing but dumps.
void LinuxSwitch::handleLoss() {
   const bool inARow = loop_->currentTime() < recoveredAt_ + recoveryPeriod;
   losses_ = inARow ? losses_ + 1 : 1;
   if ( losses_ <= maxLossesInARow )
      recover();
   else
      degrade( "links change faster than they can be heard of" );
}

void LinuxSwitch::recover() {
   recoveryTime_ = never;
   Outcome outcome = events_ ? Outcome() : openEvents();
   if ( outcome.ok() && !answers_ )
      outcome = openAnswers();
   if ( outcome.ok() )
      outcome = dumpLinks();
   if ( !outcome.ok() )
      return degrade( outcome.text() );
   trouble_.clear();
   recoveredAt_ = loop_->currentTime();
   if ( std::exchange( missed_, false ) )
      listener_->resynchronised();
   tellHealth();
}

void LinuxSwitch::degrade( const Vel::String & why ) {
   trouble_ = why;
   recoveryTime_ = loop_->currentTime() + recoveryPeriod;
   tellHealth();
}

void LinuxSwitch::tellHealth() {
   Health health{ !trouble_.empty(), trouble_ };
   for ( const Vel::String & text : { links_.refusals(), membership_.uncounted() } )
      if ( !text.empty() )
         health.text += ( health.text.empty() ? "" : "; " ) + text;
   if ( health == health_ )
      return;
   health_ = health;
   listener_->healthIs( health );
}

double LinuxSwitch::dueTime() const {
   double due = recoveryTime_;
   for ( const auto & [intf, restoring] : restoring_ )
      due = std::min( due, restoring.restore->retryTime() );
   return due;
}

/// Nobody is told anything in this phase of the turn.
void LinuxSwitch::run( double currentTime ) {
   if ( recoveryTime_ <= currentTime ) {
      recoveryTime_ = never;
      later( [this] { recover(); } );
   }
   if ( !restoring_.empty() )
      later( [this] { retryRestores(); } );
}

// Counters.

Outcome LinuxSwitch::countersRefresh( VelPool::EntityManager & pool ) {
   if ( !running_ )
      return Outcome::failed( "cannot read the counters: the switch is not started" );
   const Outcome outcome = dumps_.whole(
      statsDumpRequest(), "cannot read the counters", [&] { counters_.begin(); },
      [&]( const nlmsghdr & message ) {
         const std::optional< StatsMessage > stats = parseStats( message );
         if ( !stats )
            return;
         const Wire::IntfId & intf = links_.intf( stats->ifIndex );
         if ( intf.kind() == Wire::IntfId::Kind::ethernet )
            counters_.portIs( intf, *stats );
      } );
   if ( outcome.ok() )
      counters_.end( pool );
   return outcome;
}

// Requests.

void LinuxSwitch::linkSet( RequestId id, const Wire::IntfId & intf, bool up, const Vel::String & restore ) {
   if ( !running_ )
      return;
   cancelRestore( intf );
   lostRoutes_.forget();
   const Vel::U32 ifIndex = links_.ifIndex( intf );
   if ( ifIndex == 0 ) {
      const Outcome outcome = Outcome::failed( Vel::text( "there is no link \"", intf, "\"" ) );
      return later( [this, id, outcome] { done( id, { outcome, {} } ); } );
   }
   const Asked asked{ id, intf, ifIndex, up, restore, ++order_ };
   lastAsked_[intf] = asked.order;
   requests_.ask( linkSetRequest( ifIndex, up ), [this, asked]( const KernelAnswer & answer ) {
      linkIsSet( asked, answer );
   } );
}

void LinuxSwitch::handleAnswers() {
   if ( !handleEvents() )
      return later( [this] { handleAnswers(); } );
   const Outcome outcome = requests_.takeAnswers();
   if ( outcome.ok() )
      return;
   close( answers_ );
   degrade( "cannot set links: " + outcome.text() );
}

void LinuxSwitch::linkIsSet( const Asked & asked, const KernelAnswer & answer ) {
   const bool last = lastAsked_[asked.intf] == asked.order;
   if ( last )
      lastAsked_.erase( asked.intf );
   LinkSetResult result;
   if ( answer.code != 0 )
      result.link = Outcome::failed(
         Vel::text( "cannot set ", asked.intf, asked.up ? " up: " : " down: ", answer.text ) );
   else if ( last )
      result.link = readBack( asked );
   if ( result.link.ok() && asked.up && !asked.restore.empty() ) {
      if ( last )
         return restore( asked );
      result.restore = Outcome::failed( "a later request took its place" );
   }
   done( asked.id, result );
}

/// A driver may refuse without saying so.
Outcome LinuxSwitch::readBack( const Asked & asked ) {
   std::optional< bool > up;
   const Vel::String what = Vel::text( "cannot read ", asked.intf, " back" );
   const Outcome outcome =
      dumps_.one( linkRequest( asked.ifIndex ), what.c_str(), [&]( const nlmsghdr & message ) {
         const std::optional< LinkEvent > event = parseLink( message );
         if ( event && !event->removed && event->link.ifIndex == asked.ifIndex )
            up = event->link.adminUp;
      } );
   if ( !outcome.ok() )
      return outcome;
   if ( !up )
      return Outcome::failed( what + ": the kernel has not answered" );
   const char * const wanted = asked.up ? " up" : " down";
   return *up == asked.up ? Outcome()
                          : Outcome::failed( Vel::text(
                               "cannot set ", asked.intf, wanted,
                               ": the kernel has acknowledged it, but the link is not", wanted ) );
}

void LinuxSwitch::restore( const Asked & asked ) {
   const double now = loop_->currentTime();
   LostStateRead read = lostStateFrom( asked.restore );
   if ( !read.outcome.ok() )
      return done( asked.id, { {}, read.outcome } );
   auto restore = std::make_unique< Restore >(
      Restore::Surroundings{ requests_, dumps_, links_ }, asked.intf,
      restoredAt( std::move( read.state ), now ), now, [this, intf = asked.intf]( const Outcome & outcome ) {
         // Held until everybody has been told.
         const auto ended = restoring_.extract( intf );
         done( ended.mapped().id, { {}, outcome } );
      } );
   Restore & begun = *restore;
   restoring_.insert_or_assign( asked.intf, Restoring{ asked.id, std::move( restore ) } );
   begun.begin();
}

void LinuxSwitch::retryRestores() {
   std::vector< Wire::IntfId > due;
   for ( const auto & [intf, restoring] : restoring_ )
      if ( restoring.restore->retryTime() <= loop_->currentTime() )
         due.push_back( intf );
   for ( const Wire::IntfId & intf : due )
      if ( const auto at = restoring_.find( intf ); at != restoring_.end() )
         at->second.restore->retry( loop_->currentTime() );
}

void LinuxSwitch::cancelRestore( const Wire::IntfId & intf ) {
   const auto at = restoring_.find( intf );
   if ( at == restoring_.end() )
      return;
   const RequestId id = at->second.id;
   restoring_.erase( at );
   const Outcome outcome = Outcome::failed( "a later request took its place" );
   later( [this, id, outcome] { done( id, { {}, outcome } ); } );
}

void LinuxSwitch::done( RequestId id, const LinkSetResult & result ) { listener_->linkSetDone( id, result ); }

LinkSnapshot LinuxSwitch::linkSnapshot( const Wire::IntfId & intf ) {
   const Vel::U32 ifIndex = links_.ifIndex( intf );
   if ( ifIndex == 0 )
      return { Outcome::failed( Vel::text( "there is no link \"", intf, "\"" ) ), {} };
   LostState state;
   state.at = loop_->currentTime();
   Outcome outcome = dumps_.whole(
      addressDumpRequest( ifIndex ), "cannot read the addresses", [&] { state.addresses.clear(); },
      [&]( const nlmsghdr & message ) {
         if ( std::optional< LinkAddress > address = parseLostAddress( message, ifIndex ) )
            state.addresses.push_back( std::move( *address ) );
      } );
   if ( lostRoutes_.fresh() )
      later( [this] { lostRoutes_.forget(); } );
   if ( outcome.ok() )
      outcome = lostRoutes_.read( ifIndex, state.routes );
   return { outcome, outcome.ok() ? textOf( state ) : Vel::String() };
}

} // namespace Linux
} // namespace DataPlane
