#pragma once

#include <string>
#include <string_view>

/// Purpose: the rates of all interfaces as one line of a stream of events.
namespace Agent {

class RatesFrame {
 public:
   explicit RatesFrame( const std::string & time ) : text_( "\"time\":\"" + time + "\",\"interfaces\":{" ) {}
   /// Rates in bits per second; one that is no finite number is null. Each name once.
   void add( std::string_view name, double inBps, double outBps );
   /// All members of the object but those that differ from reader to reader, which come before; the frame ends with it.
   std::string text() const { return text_ + "}}\n\n"; }

 private:
   void addRate( double bps );

   std::string text_;
   bool empty_ = true;
};

} // namespace Agent
