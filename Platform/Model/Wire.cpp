#include "Platform/Model/Wire.h"

namespace Wire {

namespace {

bool isDigit( char c ) { return c >= '0' && c <= '9'; }

std::size_t digits( std::string_view name, std::size_t from ) {
   std::size_t count = 0;
   while ( from + count < name.size() && isDigit( name[from + count] ) )
      ++count;
   return count;
}

std::strong_ordering compareNames( std::string_view a, std::string_view b ) {
   std::size_t at = 0;
   while ( at < a.size() && at < b.size() && a[at] == b[at] )
      ++at;
   const std::size_t runA = digits( a, at );
   const std::size_t runB = digits( b, at );
   // Inside a run of digits the longer one is the larger number. At the start of one it is a digit against
   // something else, which any byte order decides.
   const bool inRun = ( runA && runB ) || ( ( runA || runB ) && at > 0 && isDigit( a[at - 1] ) );
   if ( inRun && runA != runB )
      return runA <=> runB;
   if ( at == a.size() || at == b.size() )
      return a.size() <=> b.size();
   return static_cast< unsigned char >( a[at] ) <=> static_cast< unsigned char >( b[at] );
}

} // namespace

IntfId::IntfId( Kind kind, std::string_view name, Vel::U16 vlanId, Kind parent )
   : kind_( kind ), parent_( parent ), vlanId_( vlanId ), length_( static_cast< Vel::U8 >( name.size() ) ) {
   if ( name.empty() )
      throw Vel::RangeError( "interface name is empty" );
   if ( name.size() > maxName )
      throw Vel::RangeError( Vel::text( "interface name \"", name, "\" has more than ", maxName, " bytes" ) );
   if ( name.find( '\0' ) != name.npos )
      throw Vel::RangeError( Vel::text( "interface name \"", name, "\" holds a zero byte" ) );
   name.copy( name_, maxName );
}

bool IntfId::valid() const {
   if ( kind_ == Kind::none )
      return *this == IntfId();
   if ( kind_ > Kind::other || parent_ > Kind::other || length_ == 0 || length_ > maxName )
      return false;
   const std::string_view all( name_, maxName );
   return all.find( '\0' ) == ( length_ == maxName ? all.npos : length_ ) &&
          all.find_first_not_of( '\0', length_ ) == all.npos &&
          ( kind_ == Kind::subIntf ) == ( parent_ != Kind::none ) && parent_ != Kind::subIntf &&
          ( vlanId_ == 0 || kind_ == Kind::vlan );
}

std::strong_ordering operator<=>( const IntfId & a, const IntfId & b ) {
   if ( a.kind_ != b.kind_ )
      return a.kind_ <=> b.kind_;
   if ( const auto order = compareNames( a.name(), b.name() ); order != 0 )
      return order;
   if ( a.vlanId_ != b.vlanId_ )
      return a.vlanId_ <=> b.vlanId_;
   return a.parent_ <=> b.parent_;
}

Vel::String stringValue( const IntfId & intfId ) { return Vel::String( intfId.name() ); }

SubIntfId::SubIntfId( std::string_view name, Kind parent ) : IntfId( Kind::subIntf, name, 0, parent ) {
   if ( parent == Kind::none || parent == Kind::subIntf || parent > Kind::other )
      throw Vel::RangeError( Vel::text( "sub-interface \"", name, "\" needs a parent of another kind" ) );
}

} // namespace Wire

void Vel::Codec< Wire::IntfId >::read( ByteReader & r, Wire::IntfId & id ) {
   if ( r.bytes( &id, sizeof id ) && id.valid() )
      return;
   r.failedIs();
   id = Wire::IntfId();
}
