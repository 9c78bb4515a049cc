#include "Agent/Control/EventStreams.h"

#include "Agent/Control/RatesFrame.h"
#include "Agent/Control/Shapes.h"
#include "Api/Values.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace Agent {

namespace {

/// Bytes of events that a reader is given at a time, or one event more.
constexpr std::size_t pieceBytes = 4096;
/// Milliseconds after which a browser that has lost its connection asks again.
constexpr unsigned retryAfter = 2000;

using Text = std::shared_ptr< const std::string >;

Text textOf( std::string text ) { return std::make_shared< const std::string >( std::move( text ) ); }

void appendEvent( std::string & to, Vel::U64 sequence, const Event & event ) {
   to += "id: " + std::to_string( sequence ) + "\nevent: " + stringValue( event.type ) +
         "\ndata: " + event.json + "\n\n";
}

} // namespace

/// What all readers have in common.
struct EventStreams::Shared {
   ControlModel model;
   ControlCommands commands;
   std::set< Reader * > readers;
   unsigned rateReaders = 0;
   Vel::U64 dropped = 0;   ///< events that readers have missed
   Vel::U64 committed = 0; ///< the last event that may be told
   bool commitAwaited = false;
   Text rates; ///< the newest frame
   Vel::U64 ratesNumber = 0;
   double ratesTime = 0;
   bool ratesAwaited = false;
   bool ended = false;

   Shared( const ControlModel & itsModel, const ControlCommands & itsCommands )
      : model( itsModel ), commands( itsCommands ), committed( itsModel.eventLog->last() ) {}
   void wakeAll( bool ratesOnly ) const;
   /// Whether the newest frame is of this second.
   bool hasFreshRates() const {
      return ratesNumber > 0 && std::floor( commands.now() ) == std::floor( ratesTime );
   }
   void makeRates();
};

class EventStreams::Reader final : public HttpStream {
 public:
   Reader( std::shared_ptr< Shared > shared, std::optional< Vel::U64 > after, bool rates )
      : shared_( std::move( shared ) ),
        at_( after.value_or( shared_->committed ) ),
        rates_( rates ),
        // The frame of this second is as good as a new one, and no other is made in it.
        ratesSent_( shared_->ratesNumber - shared_->hasFreshRates() ) {
      shared_->readers.insert( this );
      shared_->rateReaders += rates_;
   }
   ~Reader() override {
      shared_->readers.erase( this );
      shared_->rateReaders -= rates_;
   }

   bool wantsRates() const { return rates_; }

   Piece next() override {
      if ( !std::exchange( greeted_, true ) )
         return { textOf( "retry: " + std::to_string( retryAfter ) + "\n\n" ) };
      if ( rest_ )
         return { std::exchange( rest_, nullptr ) };
      if ( Text dropped = skipDropped() )
         return { std::move( dropped ) };
      if ( at_ < shared_->committed )
         return { events() };
      if ( rates_ && ratesSent_ < shared_->ratesNumber )
         return { ratesHead() };
      return { nullptr, shared_->ended };
   }
   std::string heartbeat() const override { return ":\n\n"; }

 private:
   /// Says what is not kept any more; null: nothing is missing.
   Text skipDropped() {
      const EventLog & log = *shared_->model.eventLog;
      // A place behind the end is of another log: that one is lost as a whole, nobody knows how much of it.
      const bool otherLog = at_ > shared_->committed;
      const Vel::U64 next = std::min( log.first(), shared_->committed + 1 );
      if ( !otherLog && at_ + 1 >= next )
         return nullptr;
      const Vel::U64 dropped = otherLog ? 0 : next - 1 - at_;
      at_ = next - 1;
      shared_->dropped += dropped;
      return textOf(
         "id: " + std::to_string( at_ ) + "\nevent: dropped\ndata: {\"dropped\":" +
         std::to_string( dropped ) + ",\"next\":" + std::to_string( next ) + "}\n\n" );
   }

   Text events() {
      const EventLog & log = *shared_->model.eventLog;
      std::string text;
      while ( at_ < shared_->committed && text.size() < pieceBytes ) {
         ++at_;
         if ( const Event * const event = log.event( at_ ) )
            appendEvent( text, at_, *event );
      }
      return textOf( std::move( text ) );
   }

   /// A frame in two pieces: how much this reader has missed, then what all are sent.
   Text ratesHead() {
      const Vel::U64 missed = shared_->ratesNumber - ratesSent_ - 1;
      // Only who has read before can have missed something.
      const bool first = std::exchange( ratesBegun_, true ) == false;
      ratesSent_ = shared_->ratesNumber;
      rest_ = shared_->rates;
      return textOf( "event: rates\ndata: {\"missed\":" + std::to_string( first ? 0 : missed ) + "," );
   }

   const std::shared_ptr< Shared > shared_;
   Vel::U64 at_; ///< the last event that it was given
   const bool rates_;
   Vel::U64 ratesSent_;
   Text rest_; ///< of a frame that is begun
   bool greeted_ = false, ratesBegun_ = false;
};

void EventStreams::Shared::wakeAll( bool ratesOnly ) const {
   // Nobody is asked for anything inside, so none of them goes meanwhile.
   for ( const Reader * const reader : readers )
      if ( !ratesOnly || reader->wantsRates() )
         reader->wake();
}

void EventStreams::Shared::makeRates() {
   if ( rateReaders == 0 || hasFreshRates() )
      return;
   ratesTime = commands.now();
   ++ratesNumber;
   RatesFrame frame( Api::timeText( commands.wallTime( ratesTime ) ) );
   const double unknown = std::numeric_limits< double >::quiet_NaN();
   const auto add = [&]( const Wire::IntfId & intf ) {
      const auto of = ratesOf( model, commands, intf );
      frame.add( intf.name(), of ? of->inBitsRate : unknown, of ? of->outBitsRate : unknown );
   };
   for ( const auto & [intf, record] : model.monIntfStatusDir->monIntfStatusRange() )
      add( intf );
   if ( commands.samples )
      for ( const auto & [intf, of] : commands.samples->rates() )
         if ( !model.monIntfStatusDir->monIntfStatus( intf ) )
            add( intf );
   rates = textOf( frame.text() );
   wakeAll( true );
}

EventStreams::EventStreams( const ControlModel & model, const ControlCommands & commands )
   : shared_( std::make_shared< Shared >( model, commands ) ) {
   lastReactor_.is( model.eventLog, this ).hasNotificationActiveIs( true );
   recordsReactor_.is( model.monIntfStatusDir, this ).hasNotificationActiveIs( true );
   for ( const auto & [intf, record] : model.monIntfStatusDir->monIntfStatusRange() )
      watchRates( intf );
}

EventStreams::~EventStreams() {
   shared_->ended = true;
   shared_->wakeAll( false );
}

std::shared_ptr< HttpStream > EventStreams::stream( std::optional< Vel::U64 > after, bool rates ) {
   auto reader = std::make_shared< Reader >( shared_, after, rates );
   // It need not wait for the next sample.
   if ( rates )
      ratesHaveChanged();
   return reader;
}

std::string EventStreams::recent( std::optional< Vel::U64 > after, Vel::U64 limit ) const {
   const EventLog & log = *shared_->model.eventLog;
   const Vel::U64 last = shared_->committed;
   limit = std::min( limit, EventLog::kept );
   Vel::U64 at = after ? *after : last - std::min( last, limit );
   // A place behind the end is of another log.
   if ( at > last )
      at = 0;
   at = std::max( at, log.first() - 1 );
   std::string text = "{\"events\":[";
   for ( bool first = true; at < last && limit > 0; --limit ) {
      ++at;
      const Event * const event = log.event( at );
      if ( event )
         text += ( std::exchange( first, false ) ? "" : "," ) + event->json;
   }
   return text + "],\"last\":" + std::to_string( last ) + "}\n";
}

unsigned EventStreams::readers() const { return static_cast< unsigned >( shared_->readers.size() ); }

Vel::U64 EventStreams::dropped() const { return shared_->dropped; }

Vel::U64 EventStreams::last() const { return shared_->committed; }

void EventStreams::end() {
   shared_->ended = true;
   shared_->committed = shared_->model.eventLog->last();
   shared_->wakeAll( false );
}

void EventStreams::handleLast() {
   if ( std::exchange( shared_->commitAwaited, true ) )
      return;
   // Also while the store fails: an agent that comes after a crash would give the number to another event.
   shared_->commands.whenStored( [shared = shared_] {
      shared->commitAwaited = false;
      shared->committed = shared->model.eventLog->last();
      shared->wakeAll( false );
   } );
}

void EventStreams::watchRates( const Wire::IntfId & intf ) {
   const auto * const record = shared_->model.monIntfStatusDir->monIntfStatus( intf );
   recordReactors_.erase( intf );
   if ( !record )
      return;
   auto & watch = recordReactors_[intf] = std::make_unique< Vel::Watch< VelRecord > >();
   watch->is( Vel::Ptr< const Maintenance::MonIntfStatus >( record ), this ).hasNotificationActiveIs( true );
}

void EventStreams::ratesHaveChanged() {
   // When the turn is committed all samples of it are there.
   if ( shared_->rateReaders == 0 || std::exchange( shared_->ratesAwaited, true ) )
      return;
   shared_->commands.whenCommitted( [shared = shared_] {
      shared->ratesAwaited = false;
      shared->makeRates();
   } );
}

} // namespace Agent
