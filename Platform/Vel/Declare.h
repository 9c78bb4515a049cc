#pragma once

#include "Platform/Vel/Collection.h"
#include "Platform/Vel/Entity.h"

#include <memory>

/// Purpose: declaring entity types. One line for each constructor parameter, attribute, counter and
/// collection:
///
///     class MonIntfStatus final : public Vel::Entity {
///        VEL_ENTITY( MonIntfStatus );                       // what follows is public
///        MonIntfStatus( const Wire::IntfId & intfId );
///        VEL_PARAM( Wire::IntfId, intfId );                 // intfId()
///        VEL_ATTR( Vel::String, profileName, onProfileName ); // profileName(), profileNameIs( v )
///        VEL_COUNTER( totalSamples, onTotalSamples );       // totalSamples(), ...Is( v ), ...Inc( n )
///        VEL_SET( Vel::String, group, onGroup );            // group( k ), groupIs( k ), groupDel( k ),
///        groups()
///     };
///
/// How it works: every line adds one class to a chain that begins at the empty Reactor. The class carries the
/// virtual handler, empty by default, and one step of the type's description. Overloads of `velChain` with
/// rising ranks name the last class so far, which is the base of the next one and in the end of all reactors
/// of the type. The macros only declare; what they call are templates in Entity.h and below, which a debugger
/// steps through.
///
/// Handlers of attributes take nothing, handlers of collections take the key. The stored value is `name_`.
namespace Vel {

/// How a value of T is passed: small ones by value.
template < class T >
using In = std::conditional_t< std::is_trivially_copyable_v< T > && sizeof( T ) <= 16, T, const T & >;

/// The description of T, built on first use.
template < class T >
const TypeInfo & typeInfoOf() {
   static const TypeInfo info = [] {
      TypeInfo result( typeName< T >() );
      LastLink< T >::velDescribe( result );
      return result;
   }();
   return info;
}

/// The steps of a description. `Member` is the pointer to the stored value or collection.
template < class E, auto Member >
struct Describe {
   template < class M >
   struct MemberOf;
   template < class T, class M >
   struct MemberOf< M T::* > {
      using Type = M;
   };
   using Stored = typename MemberOf< decltype( Member ) >::Type;

   static Stored & of( Entity & entity ) { return static_cast< E & >( entity ).*Member; }
   static void * raw( Entity & entity ) { return &of( entity ); }
   template < class T >
   requires std::is_convertible_v< T *, const Entity * >
   static const Entity * pointee( const Ptr< T > & pointer ) { return pointer.get(); }

   static void value( TypeInfo & info, const char * name, AttributeInfo::Kind kind, unsigned index ) {
      AttributeInfo a{ name, kind, index };
      a.value = &valueType< Stored >();
      a.raw = raw;
      if constexpr ( requires( const Stored & stored ) { pointee( stored ); } )
         a.entity = []( Entity & entity ) { return pointee( of( entity ) ); };
      info.attributeIs( a );
   }
};

template < class E, class Key, class Value, class Order, Collection< Key, Value, Order > E::*Member >
struct DescribeKeyed {
   using Stored = Collection< Key, Value, Order >;
   static Stored & of( Entity & entity ) { return static_cast< E & >( entity ).*Member; }
   static U32 size( const Entity & entity ) { return ( static_cast< const E & >( entity ).*Member ).size(); }

   template < class V >
   static const void * item( const V & value ) {
      return &value;
   }
   template < class C >
   static const void * item( const Ptr< C > & child ) {
      return static_cast< const Entity * >( child.get() );
   }
   static void each( Entity & entity, void * context, AttributeInfo::Visit visit ) {
      for ( const auto & [key, value] : of( entity ) )
         visit( context, &key, item( value ) );
   }
   static const void * find( Entity & entity, ByteReader & bytes ) {
      Key key{};
      Codec< Key >::read( bytes, key );
      const Value * value = bytes.failed() ? nullptr : of( entity ).find( key );
      return value ? item( *value ) : nullptr;
   }
   static bool restore( Entity & entity, ByteReader & keyBytes, ByteReader & valueBytes ) {
      Key key{};
      Codec< Key >::read( keyBytes, key );
      if constexpr ( std::is_same_v< Value, NoValue > ) {
         if ( !keyBytes.failed() )
            of( entity ).emplace( key );
      } else {
         Value value{};
         Codec< Value >::read( valueBytes, value );
         if ( !keyBytes.failed() && !valueBytes.failed() )
            *of( entity ).emplace( key ).first = value;
      }
      return !keyBytes.failed() && !valueBytes.failed();
   }
   static AttributeInfo common( const char * name, AttributeInfo::Kind kind, unsigned index ) {
      AttributeInfo a{ name, kind, index };
      a.key = &valueType< Key >();
      a.each = each;
      a.size = size;
      a.find = find;
      return a;
   }
   static void set( TypeInfo & info, const char * name, unsigned index ) {
      AttributeInfo a = common( name, AttributeInfo::set, index );
      a.restore = restore;
      info.attributeIs( a );
   }
   static void map( TypeInfo & info, const char * name, unsigned index ) {
      AttributeInfo a = common( name, AttributeInfo::map, index );
      a.value = &valueType< Value >();
      a.restore = restore;
      info.attributeIs( a );
   }
   template < class Child >
   static void children( TypeInfo & info, const char * name, unsigned index ) {
      AttributeInfo a = common( name, AttributeInfo::children, index );
      if constexpr ( std::is_constructible_v< Child, const Key & > ) {
         a.restoreChild = []( Entity & entity, ByteReader & bytes ) -> Entity * {
            Key key{};
            Codec< Key >::read( bytes, key );
            if ( bytes.failed() )
               return nullptr;
            Value & child = *of( entity ).emplace( key ).first;
            if ( !child )
               child = make< Child >( key );
            return child.get();
         };
      }
      info.attributeIs( a );
   }
};

/// The reactor of a key, made and switched on if it is not there.
template < class Key, class R, class Owner >
R * reactorIs(
   Collection< Key, std::unique_ptr< R > > & reactors, const Key & key,
   Ptr< const typename R::Watched > entity, Owner * owner ) {
   const auto [slot, inserted] = reactors.emplace( key );
   if ( !inserted )
      return slot->get();
   *slot = std::make_unique< R >( std::move( entity ), owner );
   R * const reactor = slot->get();
   reactor->velInterestIs( interestOf< R >() );
   reactor->hasNotificationActiveIs( true );
   return reactor;
}

} // namespace Vel

/// First line of an entity type. What follows is public.
#define VEL_ENTITY( Type )                                                                                   \
 public:                                                                                                     \
   static ::Vel::Reactor velChain( ::Vel::Rank< 0 > );                                                       \
   const ::Vel::TypeInfo & typeInfo() const override { return ::Vel::typeInfoOf< Type >(); }                 \
   using VelSelf = Type

/// First line of a type that derives from another entity type and adds lines of its own.
#define VEL_SUBENTITY( Type, Base )                                                                          \
 public:                                                                                                     \
   static ::Vel::LastLink< Base > velChain( ::Vel::Rank< ::Vel::LastLink< Base >::velIndex > );              \
   const ::Vel::TypeInfo & typeInfo() const override { return ::Vel::typeInfoOf< Type >(); }                 \
   using VelSelf = Type

/// One link of the chain. The remaining arguments are the step of the description.
#define VEL_LINK( name, handler, Signature, ... )                                                            \
   struct VelLink_##name : decltype( velChain( ::Vel::AnyRank{} ) ) {                                        \
      using VelPrevious = decltype( velChain( ::Vel::AnyRank{} ) );                                          \
      static constexpr unsigned velIndex = VelPrevious::velIndex + 1;                                        \
      static constexpr ::Vel::U64 velBit = ::Vel::U64( 1 ) << velIndex;                                      \
      virtual void handler Signature {}                                                                      \
      template < class R >                                                                                   \
      static constexpr ::Vel::U64 velInterest() {                                                            \
         constexpr bool overridden =                                                                         \
            !std::is_same_v< decltype( &R::handler ), decltype( &VelLink_##name::handler ) >;                \
         return VelPrevious::template velInterest< R >() | ( overridden ? velBit : 0 );                      \
      }                                                                                                      \
      static void velDescribe( ::Vel::TypeInfo & info ) {                                                    \
         VelPrevious::velDescribe( info );                                                                   \
         __VA_ARGS__;                                                                                        \
      }                                                                                                      \
   };                                                                                                        \
   static VelLink_##name velChain( ::Vel::Rank< VelLink_##name::velIndex > )

/// Constructor parameter; never changes. The constructor initialises `name_`.
#define VEL_PARAM( Type, name )                                                                              \
   struct VelLink_##name : decltype( velChain( ::Vel::AnyRank{} ) ) {                                        \
      using VelPrevious = decltype( velChain( ::Vel::AnyRank{} ) );                                          \
      static constexpr unsigned velIndex = VelPrevious::velIndex + 1;                                        \
      template < class R >                                                                                   \
      static constexpr ::Vel::U64 velInterest() {                                                            \
         return VelPrevious::template velInterest< R >();                                                    \
      }                                                                                                      \
      static void velDescribe( ::Vel::TypeInfo & info ) {                                                    \
         VelPrevious::velDescribe( info );                                                                   \
         ::Vel::Describe< VelSelf, &VelSelf::name##_ >::value(                                               \
            info, #name, ::Vel::AttributeInfo::param, velIndex );                                            \
      }                                                                                                      \
   };                                                                                                        \
   static VelLink_##name velChain( ::Vel::Rank< VelLink_##name::velIndex > );                                \
   ::Vel::In< Type > name() const { return name##_; }                                                        \
                                                                                                             \
 private:                                                                                                    \
   Type name##_{};                                                                                           \
                                                                                                             \
 public:                                                                                                     \
   static_assert( true )

/// Attribute whose setter is written by hand because it does more than store: `nameStore( v )` stores and
/// tells.
#define VEL_STATE( Type, name, handler )                                                                     \
   VEL_LINK(                                                                                                 \
      name, handler, (),                                                                                     \
      ::Vel::Describe< VelSelf, &VelSelf::name##_ >::value(                                                  \
         info, #name, ::Vel::AttributeInfo::attribute, velIndex ) );                                         \
   ::Vel::In< Type > name() const { return name##_; }                                                        \
                                                                                                             \
 private:                                                                                                    \
   bool name##Store( ::Vel::In< Type > value ) {                                                             \
      if ( name##_ == value )                                                                                \
         return false;                                                                                       \
      name##_ = value;                                                                                       \
      this->template velChanged< VelLink_##name >( []( VelLink_##name & r ) { r.handler(); } );              \
      return true;                                                                                           \
   }                                                                                                         \
   Type name##_{};                                                                                           \
                                                                                                             \
 public:                                                                                                     \
   static_assert( true )

/// Attribute: `name()`, `nameIs( value )`.
#define VEL_ATTR( Type, name, handler )                                                                      \
   VEL_STATE( Type, name, handler );                                                                         \
   void name##Is( ::Vel::In< Type > value ) { name##Store( value ); }                                        \
   static_assert( true )

/// Unsigned 32-bit counter: `name()`, `nameIs( value )`, `nameInc( amount )`. Wraps.
#define VEL_COUNTER( name, handler )                                                                         \
   VEL_LINK(                                                                                                 \
      name, handler, (),                                                                                     \
      ::Vel::Describe< VelSelf, &VelSelf::name##_ >::value(                                                  \
         info, #name, ::Vel::AttributeInfo::counter, velIndex ) );                                           \
   ::Vel::U32 name() const { return name##_; }                                                               \
   void name##Is( ::Vel::U32 value ) {                                                                       \
      if ( name##_ == value )                                                                                \
         return;                                                                                             \
      name##_ = value;                                                                                       \
      this->template velChanged< VelLink_##name >( []( VelLink_##name & r ) { r.handler(); } );              \
   }                                                                                                         \
   void name##Inc( ::Vel::U32 amount ) { name##Is( name##_ + amount ); }                                     \
                                                                                                             \
 private:                                                                                                    \
   ::Vel::U32 name##_ = 0;                                                                                   \
                                                                                                             \
 public:                                                                                                     \
   static_assert( true )

/// What all keyed collections have: `names()` is the size, `nameFirst()` the first key or null, `nameRange()`
/// is for walking (keys may come and go meanwhile), `nameDel( key )`, `nameDelAll()`.
#define VEL_KEYED( Key, Value, name, OrderedOrHashed )                                                       \
   using VelCollection_##name = ::Vel::Collection< Key, Value, OrderedOrHashed >;                            \
   ::Vel::U32 name##s() const { return name##_.size(); }                                                     \
   const Key * name##First() const { return name##_.firstKey(); }                                            \
   const VelCollection_##name & name##Range() const { return name##_; }                                      \
                                                                                                             \
 private:                                                                                                    \
   VelCollection_##name name##_;                                                                             \
                                                                                                             \
 public:                                                                                                     \
   static_assert( true )

/// Keyed collection of values: `name( key )` is the value in place or null, `nameIs( key, value )`. A fifth
/// argument `Ordered` walks in the order of keys instead of insertion.
#define VEL_MAP( Key, Value, name, handler, ... )                                                            \
   VEL_LINK(                                                                                                 \
      name, handler, (const Key &),                                                                          \
      ::Vel::DescribeKeyed< VelSelf, Key, Value, VEL_ORDERING( __VA_ARGS__ ), &VelSelf::name##_ >::map(      \
         info, #name, velIndex ) );                                                                          \
   const Value * name( const Key & key ) const { return name##_.find( key ); }                               \
   void name##Is( const Key & key, ::Vel::In< Value > value ) {                                              \
      Value * const slot = name##_.find( key );                                                              \
      if ( !slot )                                                                                           \
         return name##Add( key, value );                                                                     \
      if ( *slot == value )                                                                                  \
         return;                                                                                             \
      *slot = value;                                                                                         \
      name##Changed( key );                                                                                  \
   }                                                                                                         \
   bool name##Del( const Key & argument ) {                                                                  \
      const Key key = argument;                                                                              \
      Value gone{};                                                                                          \
      if ( !name##_.extract( key, gone ) )                                                                   \
         return false;                                                                                       \
      name##Changed( key );                                                                                  \
      return true;                                                                                           \
   }                                                                                                         \
   void name##DelAll() {                                                                                     \
      while ( const Key * key = name##_.firstKey() )                                                         \
         name##Del( *key );                                                                                  \
   }                                                                                                         \
                                                                                                             \
 private:                                                                                                    \
   [[gnu::noinline]] void name##Add( const Key & key, ::Vel::In< Value > value ) {                           \
      *name##_.emplace( key ).first = value;                                                                 \
      name##Changed( key );                                                                                  \
   }                                                                                                         \
   void name##Changed( const Key & key ) {                                                                   \
      this->template velKeyChanged< VelLink_##name >(                                                        \
         key, [&key]( VelLink_##name & r ) { r.handler( key ); } );                                          \
   }                                                                                                         \
                                                                                                             \
 public:                                                                                                     \
   VEL_KEYED( Key, Value, name, VEL_ORDERING( __VA_ARGS__ ) )

/// Set of keys whose operations are written by hand because they do more than store. Gives `name( key )`,
/// membership, and privately `nameStore( key )` and `nameTake( key )`, which add a key or take it out, and tell.
#define VEL_STATE_SET( Key, name, handler, ... )                                                             \
   VEL_LINK(                                                                                                 \
      name, handler, (const Key &),                                                                          \
      ::Vel::DescribeKeyed< VelSelf, Key, ::Vel::NoValue, VEL_ORDERING( __VA_ARGS__ ), &VelSelf::name##_ >:: \
         set( info, #name, velIndex ) );                                                                     \
   bool name( const Key & key ) const { return name##_.find( key ) != nullptr; }                             \
                                                                                                             \
 private:                                                                                                    \
   bool name##Store( const Key & key ) {                                                                     \
      if ( !name##_.emplace( key ).second )                                                                  \
         return false;                                                                                       \
      name##Changed( key );                                                                                  \
      return true;                                                                                           \
   }                                                                                                         \
   bool name##Take( const Key & argument ) {                                                                 \
      const Key key = argument;                                                                              \
      ::Vel::NoValue gone;                                                                                   \
      if ( !name##_.extract( key, gone ) )                                                                   \
         return false;                                                                                       \
      name##Changed( key );                                                                                  \
      return true;                                                                                           \
   }                                                                                                         \
   void name##Changed( const Key & key ) {                                                                   \
      this->template velKeyChanged< VelLink_##name >(                                                        \
         key, [&key]( VelLink_##name & r ) { r.handler( key ); } );                                          \
   }                                                                                                         \
                                                                                                             \
 public:                                                                                                     \
   VEL_KEYED( Key, ::Vel::NoValue, name, VEL_ORDERING( __VA_ARGS__ ) )

/// Set of keys: `name( key )` tells membership, `nameIs( key )` adds, `nameDel( key )`, `nameDelAll()`.
#define VEL_SET( Key, name, handler, ... )                                                                   \
   VEL_STATE_SET( Key, name, handler __VA_OPT__(, ) __VA_ARGS__ );                                           \
   void name##Is( const Key & key ) { name##Store( key ); }                                                  \
   bool name##Del( const Key & key ) { return name##Take( key ); }                                           \
   void name##DelAll() {                                                                                     \
      while ( const Key * key = name##_.firstKey() )                                                         \
         name##Del( *key );                                                                                  \
   }                                                                                                         \
   static_assert( true )

/// Owned child entities by key whose operations are written by hand because they do more than store. Gives
/// `name( key )`, the child or null, and privately `namePut( key, child )` and `nameTake( key )`, which put a
/// child (one under the same key leaves first) or take it out, and tell.
#define VEL_OWNED( Key, Child, name, handler, ... )                                                          \
   VEL_LINK(                                                                                                 \
      name, handler, (const Key &),                                                                          \
      ::Vel::DescribeKeyed<                                                                                  \
         VelSelf, Key, ::Vel::Ptr< Child >, VEL_ORDERING( __VA_ARGS__ ),                                     \
         &VelSelf::name##_ >::template children< Child >( info, #name, velIndex ) );                         \
   Child * name( const Key & key ) const {                                                                   \
      const ::Vel::Ptr< Child > * child = name##_.find( key );                                               \
      return child ? child->get() : nullptr;                                                                 \
   }                                                                                                         \
                                                                                                             \
 private:                                                                                                    \
   Child * name##Store( const Key & argument, ::Vel::Ptr< Child > child ) {                                  \
      const Key key = argument;                                                                              \
      if ( !child )                                                                                          \
         throw ::Vel::RangeError::nullParameter( "_" #name, ::Vel::typeName< VelSelf >() + "::" #name );     \
      Child * const result = child.get();                                                                    \
      if ( name( key ) == result )                                                                           \
         return result;                                                                                      \
      name##Take( key );                                                                                     \
      *name##_.emplace( key ).first = std::move( child );                                                    \
      name##Changed( key, result, nullptr );                                                                 \
      return result;                                                                                         \
   }                                                                                                         \
   bool name##Take( const Key & argument ) {                                                                 \
      const Key key = argument;                                                                              \
      ::Vel::Ptr< Child > gone;                                                                              \
      if ( !name##_.extract( key, gone ) )                                                                   \
         return false;                                                                                       \
      name##Changed( key, nullptr, gone.get() );                                                             \
      return true;                                                                                           \
   }                                                                                                         \
   void name##Changed( const Key & key, Child * added, Child * removed ) {                                   \
      this->template velChildChanged< VelLink_##name >(                                                      \
         key, added, removed, [&]( VelLink_##name & r ) { r.handler( key ); } );                             \
   }                                                                                                         \
                                                                                                             \
 public:                                                                                                     \
   VEL_KEYED( Key, ::Vel::Ptr< Child >, name, VEL_ORDERING( __VA_ARGS__ ) )

/// Owned child entities by key: what VEL_OWNED gives, and `nameIs( key, args... )`, which returns the child
/// that is there or makes one from ( key, args... ); `namePut( key, child )` puts a given child, one under
/// the same key is deleted first; `nameDel( key )` takes the child out, tells, then drops the reference;
/// `nameDelAll()`.
#define VEL_CHILDREN( Key, Child, name, handler, ... )                                                       \
   VEL_OWNED( Key, Child, name, handler __VA_OPT__(, ) __VA_ARGS__ );                                        \
   template < class... Args >                                                                                \
   requires std::is_constructible_v< Child, const Key &, Args... > Child * name##Is(                         \
      const Key & key, Args &&... args ) {                                                                   \
      if ( Child * child = name( key ) )                                                                     \
         return child;                                                                                       \
      return name##Store( key, ::Vel::make< Child >( key, std::forward< Args >( args )... ) );               \
   }                                                                                                         \
   Child * name##Put( const Key & key, ::Vel::Ptr< Child > child ) {                                         \
      return name##Store( key, std::move( child ) );                                                         \
   }                                                                                                         \
   bool name##Del( const Key & key ) { return name##Take( key ); }                                           \
   void name##DelAll() {                                                                                     \
      while ( const Key * key = name##_.firstKey() )                                                         \
         name##Del( *key );                                                                                  \
   }                                                                                                         \
   static_assert( true )

/// Reactors by key, one for each entity of a watched collection: `name( key )` is the reactor or null;
/// `nameIs( key, entity )` makes it unless it is there, bound to the entity and to this object, and switches
/// it on; `nameDel( key )`, `nameDelAll()`. The reactor class is complete here and is built from ( entity,
/// owner ).
#define VEL_REACTORS( Key, ReactorType, name )                                                               \
   struct VelLink_##name : decltype( velChain( ::Vel::AnyRank{} ) ) {                                        \
      using VelPrevious = decltype( velChain( ::Vel::AnyRank{} ) );                                          \
      static constexpr unsigned velIndex = VelPrevious::velIndex + 1;                                        \
      template < class R >                                                                                   \
      static constexpr ::Vel::U64 velInterest() {                                                            \
         return VelPrevious::template velInterest< R >();                                                    \
      }                                                                                                      \
      static void velDescribe( ::Vel::TypeInfo & info ) {                                                    \
         VelPrevious::velDescribe( info );                                                                   \
         info.attributeIs( { #name, ::Vel::AttributeInfo::reactors, velIndex } );                            \
      }                                                                                                      \
   };                                                                                                        \
   static VelLink_##name velChain( ::Vel::Rank< VelLink_##name::velIndex > );                                \
   ReactorType * name( const Key & key ) const {                                                             \
      const auto * reactor = name##_.find( key );                                                            \
      return reactor ? reactor->get() : nullptr;                                                             \
   }                                                                                                         \
   ReactorType * name##Is( const Key & key, ::Vel::Ptr< const ReactorType::Watched > entity ) {              \
      if ( !entity )                                                                                         \
         throw ::Vel::RangeError::nullParameter( "_" #name, ::Vel::typeName< VelSelf >() + "::" #name );     \
      return ::Vel::reactorIs( name##_, key, std::move( entity ), this );                                    \
   }                                                                                                         \
   bool name##Del( const Key & key ) {                                                                       \
      std::unique_ptr< ReactorType > gone;                                                                   \
      return name##_.extract( key, gone );                                                                   \
   }                                                                                                         \
   void name##DelAll() {                                                                                     \
      while ( const Key * key = name##_.firstKey() )                                                         \
         name##Del( *key );                                                                                  \
   }                                                                                                         \
   VEL_KEYED( Key, std::unique_ptr< ReactorType >, name, ::Vel::Hashed )

/// The order of a collection from the optional last argument of its line.
#define VEL_ORDERING( ... ) VEL_FIRST( __VA_OPT__( ::Vel::__VA_ARGS__, )::Vel::Hashed )
#define VEL_FIRST( ... ) VEL_FIRST_OF( __VA_ARGS__, )
#define VEL_FIRST_OF( first, ... ) first
