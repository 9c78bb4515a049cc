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
   waiting_.push_back( { question, std::move( answered ) } );
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
   rules_.clear();
   dueTime_ = loop_.currentTime() + Switch::routePatience;
   startStep( Step::nextHops );
}

void RouteReader::startStep( Step step ) {
   step_ = step;
   reads_ = 0;
   foldBefore_ = fold_;
   dump();
}

void RouteReader::missing( const Vel::String & problem ) {
   if ( problem_.empty() )
      problem_ = problem;
}

void RouteReader::timeIsOver() {
   if ( step_ == Step::idle || dueTime_ > loop_.currentTime() )
      return;
   missing( Vel::text( "they cannot be read within ", Switch::routePatience, " s" ) );
   finish();
}

// Dumps.

void RouteReader::close() {
   news_.reset();
   if ( !channel_ )
      return;
   loop_.descriptorDel( channel_->descriptor() );
   channel_.reset();
}

/// Each on a channel of its own: what is left of one that was given up is of no concern to the next.
void RouteReader::dump() {
   close();
   ++reads_;
   interrupted_ = false;
   const auto family = static_cast< Vel::U8 >( step_ == Step::routes6 ? AF_INET6 : AF_INET );
   const bool ofRoutes = step_ != Step::nextHops;
   if ( ofRoutes )
      news_ = kernel_.openRouteNews( family ).channel;
   Bytes request = ofRoutes ? routeDumpRequest( family, 0, 0 ) : nextHopDumpRequest();
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
         end = endOf( message );
      else if ( message.nlmsg_type == NLMSG_ERROR )
         end = parseAnswer( message ).value_or( KernelAnswer{ EPROTO, {} } ).code;
      else if ( step_ == Step::nextHops ) {
         if ( std::optional< NextHopObject > object = parseNextHop( message ) )
            fold_.nextHopIs( std::move( *object ) );
      } else if ( std::optional< RouteEntry > route = parseRouteEntry( message ) ) {
         if ( fold_.wants( route->key ) )
            route->gateways = parseGateways( message );
         fold_.take( *route );
      }
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

/// Whether it is known that something has changed while it was dumped.
bool RouteReader::hasChanged() {
   if ( interrupted_ )
      return true;
   for ( int left = mostNews; news_ && left > 0; --left ) {
      const Channel::Received received = news_->receive();
      if ( received.got == Channel::Got::nothing || received.got == Channel::Got::failed )
         return false;
      if ( received.got == Channel::Got::lost )
         return true;
      bool counts = false;
      forEachMessage( received.begin, received.size, [&]( const nlmsghdr & message ) {
         const std::optional< rtmsg > header = fixedHeader< rtmsg >( message );
         const bool ofRoute = message.nlmsg_type == RTM_NEWROUTE || message.nlmsg_type == RTM_DELROUTE;
         // What the kernel remembers of a way to one address is in no table.
         counts = counts || ( ofRoute && header && !( header->rtm_flags & RTM_F_CLONED ) );
         return !counts;
      } );
      if ( counts )
         return true;
   }
   return news_ != nullptr;
}

void RouteReader::next( bool whole ) {
   const bool changed = whole && hasChanged();
   const bool hasTime = loop_.currentTime() < dueTime_ - Switch::routePatience / 2;
   if ( changed && reads_ < mostReads && hasTime ) {
      fold_ = foldBefore_;
      return dump();
   }
   if ( interrupted_ || ( changed && step_ == Step::routes6 ) )
      missing( "they have changed while they were read" );
   close();
   if ( whole )
      fold_.end();
   else
      fold_.drop();
   if ( step_ == Step::nextHops ) {
      for ( Asked & asked : asked_ )
         lookUp( asked );
      startStep( Step::routes4 );
   } else if ( step_ == Step::routes4 ) {
      startStep( Step::routes6 );
   } else if ( step_ == Step::routes6 ) {
      if ( fold_.unresolved() )
         missing( "not all next hops that they share are known" );
      if ( fold_.overfull() )
         missing( "they lead more different ways than can be told apart" );
      finish();
   }
}

// What is found.

namespace {

/// What a route that drops packets does with what is sent to an address, by what the kernel answers who asks for the way
/// there; empty: it is no answer of that kind.
Vel::String refusalOf( int code, const Vel::String & address ) {
   switch ( code ) {
   case EINVAL:
      return Vel::text( "a blackhole route drops what is sent to ", address );
   case EHOSTUNREACH:
      return Vel::text( "an unreachable route turns back what is sent to ", address );
   case EACCES:
      return Vel::text( "a prohibit route turns back what is sent to ", address );
   default:
      return "";
   }
}

} // namespace

void RouteReader::lookUp( Asked & asked ) {
   const Vel::String & text = asked.question.address;
   if ( text.empty() )
      return;
   asked.address = addressFromText( text );
   const std::optional< IpAddress > & address = asked.address;
   if ( !address ) {
      asked.problem = "\"" + text + "\" is no address";
      return;
   }
   if ( !asked.question.link.empty() )
      return;
   std::optional< IpAddress > source = addressFromText( asked.question.source );
   if ( source && source->family != address->family )
      source.reset();
   const auto ask = [&] {
      return lookUps_.one(
         routeLookUpRequest( *address, source ), "cannot be asked for", [&]( const nlmsghdr & message ) {
            if ( std::optional< RouteEntry > route = parseRouteEntry( message ) ) {
               route->gateways = parseGateways( message );
               asked.found = std::move( route );
            }
         } );
   };
   Outcome outcome = ask();
   // An address that the machine has no more, or has in another namespace, is none to ask from.
   if ( source && !asked.found ) {
      source.reset();
      outcome = ask();
   }
   if ( !outcome.ok() || !asked.found ) {
      asked.problem = refusalOf( lookUps_.code(), text );
      if ( asked.problem.empty() )
         asked.problem =
            "there is no route to " + text + ( outcome.ok() ? Vel::String() : " (" + outcome.text() + ")" );
      return;
   }
   asked.source = source;
   fold_.want( asked.found->key );
   if ( !isOnLinkItself( *asked.found ) )
      fold_.wantAllFor( *address, source, asked.found->key.table );
   asked.doubt = doubtOf( *address, source.has_value() );
}

/// Whether it leads to whoever is on the link, and to nobody behind.
bool RouteReader::isOnLinkItself( const RouteEntry & route ) const {
   using Kind = RouteEntry::Kind;
   return route.kind == Kind::local || route.kind == Kind::connected ||
          ( route.kind == Kind::onLink && links_.hasNeighbours( route.hops.front().ifIndex ) );
}

/// There are a handful of rules, and they are read once a reading.
const std::optional< RouteReader::Rules > & RouteReader::rulesOf( Vel::U8 family ) {
   const auto [at, isNew] = rules_.try_emplace( family );
   std::optional< Rules > & rules = at->second;
   if ( isNew ) {
      const Outcome outcome = lookUps_.whole(
         ruleDumpRequest( family ), "rules", [&] { rules.emplace(); },
         [&]( const nlmsghdr & message ) {
            rules->basis = std::max( rules->basis, parseRuleBasis( message ) );
            rules->suppressed = std::max( rules->suppressed, parseSuppressedLength( message ) );
         } );
      // A kernel that knows none has none.
      if ( !outcome.ok() )
         rules = lookUps_.code() == EOPNOTSUPP ? std::optional( Rules() ) : std::nullopt;
   }
   return rules;
}

Vel::String RouteReader::doubtOf( const IpAddress & address, bool sourceKnown ) {
   const std::optional< Rules > & rules = rulesOf( address.family );
   if ( !rules )
      return "the rules that choose between routing tables cannot be read";
   if ( rules->basis == RuleBasis::more )
      return "rules choose between routing tables by more than the addresses of its packets";
   return rules->basis == RuleBasis::source && !sourceKnown
             ? "rules choose between routing tables by the source of its packets, which is not known"
             : "";
}

/// Adds ways of one preference to the way to an address, with the ports of bridges that they lead through.
void RouteReader::follow( const RouteWays & ways, const IpAddress & address, AddressWay & to ) {
   EqualHops & hops = to.choices.emplace_back();
   for ( const RouteWay & way : ways ) {
      hops.push_back( { links_.name( way.hop.ifIndex ), way.hop.weight, way.hop.usable } );
      if ( to.local )
         continue;
      if ( to.behind.size() < mostFollowed ) {
         std::optional< BehindPort > found =
            behindBridge_.find( way.hop.ifIndex, way.gateway.value_or( address ) );
         if ( !found )
            continue;
         to.behind.push_back( std::move( *found ) );
      } else if ( to.behind.size() == mostFollowed ) {
         // It says so of all further ones.
         to.behind.push_back( { "", Vel::text( "there are more than ", mostFollowed, " ways" ) } );
      }
      hops.back().behind = static_cast< std::uint16_t >( to.behind.size() );
   }
}

AddressWay RouteReader::wayOf( const Asked & asked ) {
   AddressWay way;
   way.problem = asked.problem;
   if ( const Vel::String & link = asked.question.link; !link.empty() && asked.address ) {
      way.destination = asked.question.address + "%" + link;
      const RouteWay only{ RouteHop{ links_.ifIndexOfName( link ) }, std::nullopt };
      follow( { only }, *asked.address, way );
   }
   if ( !asked.found )
      return way;
   way.destination = stringValue( asked.found->key );
   way.doubt = asked.doubt;
   way.local = asked.found->kind == RouteEntry::Kind::local;
   std::vector< RouteWays > choices = fold_.wanted( asked.found->key );
   // It has changed since, or was not read: then there may be less preferred ways that nobody knows of.
   if ( choices.empty() && !problem_.empty() )
      way.problem = problem_;
   if ( choices.empty() )
      choices = { fold_.waysOf( *asked.found ) };
   for ( const RouteWays & ways : choices )
      follow( ways, *asked.address, way );
   addLessSpecific( asked, way );
   return way;
}

/// Of the same table: which one rules would lead to when this has no answer is not followed.
void RouteReader::addLessSpecific( const Asked & asked, AddressWay & to ) {
   if ( isOnLinkItself( *asked.found ) )
      return;
   const std::optional< Rules > & rules = rulesOf( asked.address->family );
   for ( const RouteFold::Destination & less :
         fold_.lessSpecific( asked.found->key, *asked.address, asked.source ) ) {
      const bool refused = to.choices.back().empty();
      if ( refused || ( rules && int( less.key.length ) <= rules->suppressed ) )
         return;
      to.lessSpecific.push_back( { stringValue( less.key ), to.choices.size() } );
      for ( const RouteWays & ways : less.ways )
         follow( ways, *asked.address, to );
   }
}

void RouteReader::finish() {
   close();
   RouteTable table;
   table.problem = problem_;
   table.classes = fold_.classes( [this]( Vel::U32 ifIndex ) { return links_.name( ifIndex ); } );
   table.links = routedLinks( links_, vlans_ );
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
