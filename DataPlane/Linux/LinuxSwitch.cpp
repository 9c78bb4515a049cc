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
   if ( outcome.ok() ) {
      rightNote();
      tellHealth();
   } else
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
   lastRestore_.clear();
   close( events_ );
   close( answers_ );
   dumps_.close();
   routeReader_.stop();
   requests_.clear();
   membership_.listenerIs( nullptr );
   links_.clear();
   vlans_.clear();
   listener_ = nullptr;
   health_ = {};
   trouble_.clear();
   lacking_.clear();
   missed_ = false;
   losses_ = 0;
   recoveredAt_ = -never;
   recoveryTime_ = never;
   lostReader_.forget();
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
   listener_->rereadIs( true );
   links_.dumpIs( links );
   membership_.settle();
   listener_->rereadIs( false );
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

/// Whoever lacks the right is refused before the kernel looks at what he asks for, and nothing comes of setting a link
/// that there is not. Our own capabilities would not tell: the one that counts is that in the user namespace to which the
/// links' namespace belongs. It does not change as long as we run.
void LinuxSwitch::rightNote() {
   (void)dumps_.one( linkSetRequest( 0, false ), "no link", []( const nlmsghdr & ) {} );
   if ( dumps_.code() == EPERM )
      lacking_ = "no link can be set up or down: the agent lacks the right to administer the network "
                 "(CAP_NET_ADMIN)";
}

void LinuxSwitch::tellHealth() {
   Health health{ !trouble_.empty(), trouble_ };
   for ( const Vel::String & text : { lacking_, links_.refusals(), membership_.uncounted() } )
      if ( !text.empty() )
         health.text += ( health.text.empty() ? "" : "; " ) + text;
   if ( health == health_ )
      return;
   health_ = health;
   listener_->healthIs( health );
}

double LinuxSwitch::dueTime() const {
   double due = std::min( recoveryTime_, routeReader_.dueTime() );
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
   if ( routeReader_.dueTime() <= currentTime )
      later( [this] { routeReader_.timeIsOver(); } );
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

} // namespace Linux
} // namespace DataPlane
