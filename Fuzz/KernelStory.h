#pragma once

#include "DataPlane/Linux/InboxRig.h"

#include <map>
#include <memory>

/// Purpose: a kernel that answers with whatever bytes it was given. It knows two things more, for nothing would go far
/// otherwise: a link that is set is so from then on, and who asks for one link gets it, unless there are bytes for that too.
namespace Fuzz {

using DataPlane::Outcome;
using DataPlane::Linux::Bytes;
using DataPlane::Linux::Channel;
using DataPlane::Linux::Inbox;
using DataPlane::Linux::InboxChannel;

/// What is asked of a kernel at once, each with an answer of its own.
enum Table : unsigned {
   links,
   vlans,
   counters,
   addresses,
   routes,
   nextHops,
   oneLink,
   oneRoute,
   neighbours,
   oneNeighbour,
   tableCount
};

class StoryKernel final : public DataPlane::Linux::Kernel {
 public:
   static constexpr Vel::U32 port = InboxChannel::ownPort;

   std::map< Table, std::vector< Vel::String > > tables; ///< datagrams of the answer to each question
   int code = 0;                                         ///< with which the next requests end
   int refusedDumps = 0;                                 ///< so many end with the code too
   int interruptedDumps = 0;
   std::weak_ptr< Inbox > events; ///< of the channel that is told of links

   DataPlane::Linux::Opened open( bool toldOfLinks ) override {
      const auto inbox = std::make_shared< Inbox >();
      if ( toldOfLinks )
         events = inbox;
      return { {}, std::make_unique< InboxChannel >( inbox, [this, inbox]( const Bytes & message ) {
                  answer( DataPlane::Linux::messageIn( message ), *inbox );
                  return Outcome();
               } ) };
   }
   DataPlane::Linux::Opened openRouteNews( Vel::U8 ) override {
      return { {}, std::make_unique< InboxChannel >( std::make_shared< Inbox >() ) };
   }
   std::optional< double > speed( const Vel::String & link ) override {
      return link.size() % 2 ? std::optional( 1e9 ) : std::nullopt;
   }
   DataPlane::LinkSnapshot bootId() override { return { {}, "boot 1" }; }

 private:
   static Table tableOf( const nlmsghdr & request );
   void answer( const nlmsghdr & request, Inbox & into );
   void linkIsSet( const nlmsghdr & request );
   void lookUp( const nlmsghdr & request, Inbox & into );
};

} // namespace Fuzz
