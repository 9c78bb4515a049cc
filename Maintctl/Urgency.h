#pragma once

#include "Api/Shapes.h"
#include "Maintctl/Picture.h"

#include <optional>
#include <string>

/// Purpose: what the answers of the agent mean for whoever waits, in its words and without them.
namespace Maintctl {

inline RatePoint ratesOf( const Api::Interface & intf ) { return { intf.inBps, intf.outBps }; }

/// How pressing an interface is to whoever waits for it.
/// \param threshold  that is held against its rates if the agent says nothing better
/// \param unit  that waits for it, where one is looked at
Urgency
urgencyOf( const Api::Interface & intf, std::optional< double > threshold, const Api::Unit * unit = nullptr );

/// In the agent's words, or what can be said without them.
std::string sentenceOf( const Api::Unit & unit );
std::string reasonOf( const Api::Interface & intf, Urgency urgency );

} // namespace Maintctl
