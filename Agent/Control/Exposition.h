#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

/// Purpose: writes figures in the text form that Prometheus reads, version 0.0.4.
///
/// Invariants: the name of a metric is told once, before its samples, with help and type; names of metrics and labels
/// are the caller's and well formed; whatever bytes a value of a label has, what comes out is well-formed UTF-8.
namespace Agent {

class Exposition {
 public:
   enum class Type { counter, gauge };
   using Label = std::pair< const char *, std::string_view >;
   using Labels = std::initializer_list< Label >;
   static constexpr char contentType[] = "text/plain; version=0.0.4; charset=utf-8";

   /// Begins a metric, whose samples follow. One that has none at present is told of all the same: the list of metrics
   /// does not depend on what happens.
   /// \param help  one line
   void metric( const char * name, Type type, const char * help );
   /// A sample of the metric that was begun last. Numbers come out exactly; any number is allowed, NaN and infinity too.
   void sample( double value, Labels labels = {} );

   std::string text() && { return std::move( text_ ); }

 private:
   void value( std::string_view text );

   std::string text_;
   const char * name_ = nullptr; ///< of the metric that was begun last
};

} // namespace Agent
