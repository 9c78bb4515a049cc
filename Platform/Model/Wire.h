#pragma once

#include "Platform/Vel/Codec.h"

#include <compare>
#include <functional>

/// Purpose: the identity of a network interface, the key of most collections of the model.
///
/// Invariants:
/// 1. An id is a plain value of 32 bytes; bytes that are not used are zero, so that equality is equality of
///    bytes.
/// 2. The empty id is below all others. The order is: kind, then name, then VLAN id, then parent. Names are
///    compared byte by byte, except that a run of digits counts as a number: et2 is below et10. A run with
///    leading zeros is above every shorter run.
/// 3. An id never changes; whoever needs another one makes another one.
namespace Wire {

class IntfId {
 public:
   /// The ordinals are part of the byte form; new kinds are added at the end.
   enum class Kind : Vel::U8 {
      none = 0,        ///< the empty id only
      ethernet = 1,    ///< a physical or virtual Ethernet port
      portChannel = 2, ///< several ports that act as one
      vlan = 3,        ///< the switch's own interface in a VLAN
      subIntf = 4,     ///< a tagged part of another interface, which is its parent
      cpu = 5,         ///< the switch's own port in its VLANs
      other = 6        ///< anything else, for example a loopback
   };

   /// Bytes that a name may have.
   static constexpr std::size_t maxName = 27;

   IntfId() = default;

   /// An interface of none of the kinds below. For names see EthIntfId.
   static IntfId other( std::string_view name ) { return IntfId( Kind::other, name ); }

   Kind kind() const { return kind_; }
   /// The kind that a sub-interface belongs to; `none` for everything else.
   Kind parent() const { return parent_; }
   /// Whether this is of that kind, or a sub-interface of that kind.
   bool is( Kind kind ) const { return kind_ == kind || parent_ == kind; }
   bool empty() const { return kind_ == Kind::none; }
   /// 0 unless this is a VLAN interface.
   Vel::U16 vlanId() const { return vlanId_; }
   /// Empty for the empty id.
   std::string_view name() const { return { name_, length_ }; }

   friend bool operator==( const IntfId & a, const IntfId & b ) {
      return __builtin_memcmp( &a, &b, sizeof( IntfId ) ) == 0;
   }
   friend std::strong_ordering operator<=>( const IntfId & a, const IntfId & b );

   /// The same for equal ids in every run of the program.
   std::size_t hash() const {
      Vel::U64 w[4];
      __builtin_memcpy( w, this, sizeof w );
      Vel::U64 h = w[0] * 0x9e3779b97f4a7c15 + w[1] * 0xc2b2ae3d27d4eb4f + w[2] * 0x165667b19e3779f9 +
                   w[3] * 0x27d4eb2f165667c5;
      h = ( h ^ h >> 32 ) * 0xd6e8feb86659fd93;
      return h ^ h >> 29;
   }

 protected:
   /// Throws RangeError if the name is empty, has more than 27 bytes or holds a zero byte.
   IntfId( Kind kind, std::string_view name, Vel::U16 vlanId = 0, Kind parent = Kind::none );

 private:
   friend struct Vel::Codec< IntfId >;
   bool valid() const;

   Kind kind_ = Kind::none;
   Kind parent_ = Kind::none;
   Vel::U16 vlanId_ = 0;
   char name_[maxName] = {};
   Vel::U8 length_ = 0;
};

static_assert( sizeof( IntfId ) == 32 && std::is_trivially_copyable_v< IntfId > );

/// The name.
Vel::String stringValue( const IntfId & intfId );
/// The name, without a copy: what a line of the fast log holds of an id.
inline std::string_view fastLogValue( const IntfId & intfId ) { return intfId.name(); }

/// The kinds. Each is built as an IntfId of that kind and tests ids for it. A name has 1 to 27 bytes, none of
/// them zero; RangeError otherwise. A sub-interface tests as its own kind and as its parent's.
class EthIntfId : public IntfId {
 public:
   explicit EthIntfId( std::string_view name ) : IntfId( Kind::ethernet, name ) {}
   static bool isEthIntfId( const IntfId & id ) { return id.is( Kind::ethernet ); }
};

class PortChannelIntfId : public IntfId {
 public:
   explicit PortChannelIntfId( std::string_view name ) : IntfId( Kind::portChannel, name ) {}
   static bool isPortChannelIntfId( const IntfId & id ) { return id.is( Kind::portChannel ); }
};

class VlanIntfId : public IntfId {
 public:
   /// Any VLAN id is taken; whoever looks a VLAN up by it (see Bridging::VlanId) refuses those outside 1 to
   /// 4094.
   VlanIntfId( std::string_view name, Vel::U16 vlanId ) : IntfId( Kind::vlan, name, vlanId ) {}
   static bool isVlanIntfId( const IntfId & id ) { return id.is( Kind::vlan ); }
   /// 0 if the interface is not a VLAN interface.
   static Vel::U16 vlanId( const IntfId & id ) { return id.vlanId(); }
};

class SubIntfId : public IntfId {
 public:
   /// The parent's kind may be any but `none` and `subIntf`; RangeError otherwise.
   explicit SubIntfId( std::string_view name, Kind parent = Kind::ethernet );
   static bool isSubIntfId( const IntfId & id ) { return id.kind() == Kind::subIntf; }
};

class CpuIntfId : public IntfId {
 public:
   explicit CpuIntfId( std::string_view name ) : IntfId( Kind::cpu, name ) {}
   static bool isCpuIntfId( const IntfId & id ) { return id.is( Kind::cpu ); }
};

} // namespace Wire

template <>
struct std::hash< Wire::IntfId > {
   std::size_t operator()( const Wire::IntfId & id ) const { return id.hash(); }
};

/// The 32 bytes as they are; what is read must be an id that could have been made.
template <>
struct Vel::Codec< Wire::IntfId > {
   static constexpr bool stored = true;
   static void write( ByteWriter & w, const Wire::IntfId & id ) { w.bytes( &id, sizeof id ); }
   static void read( ByteReader & r, Wire::IntfId & id );
};
