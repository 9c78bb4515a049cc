#include "DataPlane/Linux/RouteReader.h"

#include "DataPlane/Linux/Route.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

#include <linux/rtnetlink.h>

namespace DataPlane::Linux {

namespace {
constexpr double never = std::numeric_limits< double >::infinity();
}

// Questions.

void RouteReader::ask( const RouteQuestion & question, RoutesAnswered answered ) {
   waiting_.push_back( { question, std::move( answered ), std::nullopt, {} } );
   if ( step_ != Step::idle || waiting_.size() > 1 )
      return;
   if ( !reading_ )
      reading_ = std::make_shared< int >();
   later( [this] { begin(); } );
}

void RouteReader::stop() {
   close();
   lookUps_.close();
   reading_.reset();
   asked_.clear();
   waiting_.clear();
   step_ = Step::idle;
   dueTime_ = never;
}

void RouteReader::later( std::function< void() > act ) {
   loop_.post( [act = std::move( act ), reading = std::weak_ptr( reading_ )] {
      if ( !reading.expired() )
         act();
   } );
}

void RouteReader::begin() {
   asked_ = std::exchange( waiting_, {} );
   fold_ = RouteFold( [this]( Vel::U32 ifIndex ) { return links_.hasNeighbours( ifIndex ); } );
   problem_.clear();
   speeds_.clear();
   rules_.clear();
   interrupted_ = false;
   dueTime_ = loop_.currentTime() + Switch::routePatience;
   step_ = Step::nextHops;
   dump( nextHopDumpRequest() );
}

void RouteReader::missing( const Vel::String & problem ) {
   if ( problem_.empty() )
      problem_ = problem;
}

void RouteReader::timeIsOver() {
   if ( step_ == Step::idle || dueTime_ > loop_.currentTime() )
      return;
   // Without their speeds links are known all the same.
   if ( step_ != Step::speeds )
      missing( Vel::text( "they cannot be read within ", Switch::routePatience, " s" ) );
   finish();
}

// Dumps.

void RouteReader::close() {
   if ( !channel_ )
      return;
   loop_.descriptorDel( channel_->descriptor() );
   channel_.reset();
}

/// Each on a channel of its own: what is left of one that was given up is of no concern to the next.
void RouteReader::dump( Bytes request ) {
   close();
   Opened opened = kernel_.open( false );
   Outcome outcome = opened.outcome;
   if ( opened.channel ) {
      channel_ = std::move( opened.channel );
      sequence_ = channel_->nextSequence();
      messageIn( request ).nlmsg_seq = sequence_;
      outcome = channel_->send( request );
   }
   if ( !outcome.ok() ) {
      missing( outcome.text() );
      return later( [this] { next( false ); } );
   }
   loop_.descriptorIs( channel_->descriptor(), loop_.readable, [this]( Vel::U32 ) { read(); } );
}

void RouteReader::read() {
   for ( int left = datagramsPerTurn; left > 0 && channel_; --left )
      if ( !take( channel_->receive() ) )
         return;
}

/// Whether to go on with the same dump in this turn.
bool RouteReader::take( const Channel::Received & received ) {
   if ( received.got == Channel::Got::nothing )
      return false;
   if ( received.got != Channel::Got::messages ) {
      missing( received.got == Channel::Got::lost ? "the answer has run over the buffer" : received.error );
      next( false );
      return false;
   }
   std::optional< int > end;
   forEachMessage( received.begin, received.size, [&]( const nlmsghdr & message ) {
      if ( message.nlmsg_seq != sequence_ || message.nlmsg_pid != channel_->port() )
         return true;
      interrupted_ |= ( message.nlmsg_flags & NLM_F_DUMP_INTR ) != 0;
      if ( message.nlmsg_type == NLMSG_DONE )
         end = -fixedHeader< int >( message ).value_or( 0 );
      else if ( message.nlmsg_type == NLMSG_ERROR )
         end = parseAnswer( message ).value_or( KernelAnswer{ EPROTO, {} } ).code;
      else if ( step_ == Step::nextHops ) {
         if ( std::optional< NextHopObject > object = parseNextHop( message ) )
            fold_.nextHopIs( std::move( *object ) );
      } else if ( const std::optional< RouteEntry > route = parseRouteEntry( message ) )
         fold_.take( *route );
      return !end;
   } );
   if ( end ) {
      dumpIsOver( *end );
      return false;
   }
   if ( fold_.routes() <= mostRoutes )
      return true;
   missing( Vel::text( "there are more than ", mostRoutes ) );
   next( false );
   return false;
}

/// A kernel that knows no shared next hops refuses to tell them, and has none.
void RouteReader::dumpIsOver( int code ) {
   const bool unknown = step_ == Step::nextHops && ( code == EOPNOTSUPP || code == EINVAL );
   if ( code != 0 && !unknown )
      missing( std::strerror( code ) );
   next( code == 0 || unknown );
}

void RouteReader::next( bool whole ) {
   close();
   if ( whole )
      fold_.end();
   else
      fold_.drop();
   if ( step_ == Step::nextHops ) {
      for ( Asked & asked : asked_ )
         lookUp( asked );
      step_ = Step::routes4;
      dump( routeDumpRequest( AF_INET, 0, 0 ) );
   } else if ( step_ == Step::routes4 ) {
      step_ = Step::routes6;
      dump( routeDumpRequest( AF_INET6, 0, 0 ) );
   } else if ( step_ == Step::routes6 ) {
      if ( interrupted_ )
         missing( "they have changed while they were read" );
      if ( fold_.unresolved() )
         missing( "not all next hops that they share are known" );
      if ( fold_.overfull() )
         missing( "they lead more different ways than can be told apart" );
      step_ = Step::speeds;
      speedless_.clear();
      links_.forEach( [this]( const LinkMessage & link, const Wire::IntfId & intf ) {
         if ( intf.kind() == Wire::IntfId::Kind::ethernet && link.adminUp && link.lowerUp )
            speedless_.push_back( link.ifIndex );
      } );
      readSpeeds();
   }
}

// What is found.

void RouteReader::lookUp( Asked & asked ) {
   const Vel::String & text = asked.question.address;
   if ( text.empty() )
      return;
   const std::optional< IpAddress > address = addressFromText( text );
   if ( !address ) {
      asked.problem = "\"" + text + "\" is no address";
      return;
   }
   std::optional< IpAddress > source = addressFromText( asked.question.source );
   if ( source && source->family != address->family )
      source.reset();
   const auto ask = [&] {
      return lookUps_.one(
         routeLookUpRequest( *address, source ), "cannot be asked for", [&]( const nlmsghdr & message ) {
            if ( std::optional< RouteEntry > route = parseRouteEntry( message ) )
               asked.found = std::move( route );
         } );
   };
   Outcome outcome = ask();
   // An address that the machine has no more, or has in another namespace, is none to ask from.
   if ( source && !asked.found ) {
      source.reset();
      outcome = ask();
   }
   if ( !outcome.ok() || !asked.found ) {
      asked.problem =
         "there is no route to " + text + ( outcome.ok() ? Vel::String() : " (" + outcome.text() + ")" );
      return;
   }
   fold_.want( asked.found->key );
   asked.doubt = doubtOf( *address, source.has_value() );
}

/// There are a handful of rules, and they are read once a reading.
Vel::String RouteReader::doubtOf( const IpAddress & address, bool sourceKnown ) {
   const auto [at, isNew] = rules_.try_emplace( address.family );
   std::optional< RuleBasis > & basis = at->second;
   if ( isNew ) {
      const Outcome outcome = lookUps_.whole(
         ruleDumpRequest( address.family ), "rules", [&] { basis = RuleBasis::nothing; },
         [&]( const nlmsghdr & message ) { basis = std::max( *basis, parseRuleBasis( message ) ); } );
      // A kernel that knows none has none.
      if ( !outcome.ok() )
         basis = lookUps_.code() == EOPNOTSUPP ? std::optional( RuleBasis::nothing ) : std::nullopt;
   }
   if ( !basis )
      return "the rules that choose between routing tables cannot be read";
   if ( *basis == RuleBasis::more )
      return "rules choose between routing tables by more than the addresses of its packets";
   return *basis == RuleBasis::source && !sourceKnown
             ? "rules choose between routing tables by the source of its packets, which is not known"
             : "";
}

void RouteReader::readSpeeds() {
   const double begun = loop_.liveTime();
   while ( !speedless_.empty() ) {
      const Vel::U32 ifIndex = speedless_.back();
      speedless_.pop_back();
      if ( const std::optional< double > speed = kernel_.speed( links_.name( ifIndex ) ) )
         speeds_[ifIndex] = *speed;
      if ( !speedless_.empty() && loop_.liveTime() - begun > speedQuantum )
         return later( [this] {
            if ( step_ == Step::speeds )
               readSpeeds();
         } );
   }
   finish();
}

AddressWay RouteReader::wayOf( const Asked & asked ) const {
   AddressWay way;
   way.problem = asked.problem;
   if ( !asked.found )
      return way;
   const RouteFold::Names nameOf = [this]( Vel::U32 ifIndex ) { return links_.name( ifIndex ); };
   way.destination = stringValue( asked.found->key );
   way.doubt = asked.doubt;
   way.local = asked.found->kind == RouteEntry::Kind::local;
   way.choices = fold_.wanted( asked.found->key, nameOf );
   // It has changed since, or was not read: then there may be less preferred ways that nobody knows of.
   if ( way.choices.empty() && !problem_.empty() )
      way.problem = problem_;
   if ( way.choices.empty() )
      way.choices = { RouteFold::named( fold_.hopsOf( *asked.found ), nameOf ) };
   return way;
}

void RouteReader::finish() {
   close();
   RouteTable table;
   table.problem = problem_;
   table.classes = fold_.classes( [this]( Vel::U32 ifIndex ) { return links_.name( ifIndex ); } );
   table.links = routedLinks( links_, vlans_ );
   for ( RoutedLink & link : table.links )
      if ( const auto speed = speeds_.find( links_.ifIndexOfName( link.name ) ); speed != speeds_.end() )
         link.speedBps = speed->second;
   step_ = Step::idle;
   dueTime_ = never;
   RouteAnswer answer;
   answer.table = std::make_shared< const RouteTable >( std::move( table ) );
   for ( Asked & asked : std::exchange( asked_, {} ) ) {
      answer.way.reset();
      if ( !asked.question.address.empty() )
         answer.way = wayOf( asked );
      asked.answered( answer );
   }
   // Whoever was answered may have asked again.
   if ( step_ == Step::idle && reading_ && !waiting_.empty() )
      later( [this] {
         if ( step_ == Step::idle && !waiting_.empty() )
            begin();
      } );
}

} // namespace DataPlane::Linux
