// What is known of the agent, and the reads that keep it true. Views read it and are told when it has changed.

import { read, Refused, Stream } from './link.js';
import { seconds, byName } from './format.js';
import { Series } from './series.js';

const eventTypes = [ 'unit', 'interface', 'profile', 'agent' ];
/** Events that are kept here; older ones are asked for by whoever shows them. */
const eventsKept = 500;
/** Seconds that are kept of each curve, and that a live one shows. */
export const span = 600, recent = 300;
const busyPeriod = 5, quietPeriod = 15;

export class Model {
   constructor() {
      this.agent = null;
      this.units = null;
      this.interfaces = new Map();  ///< by name: those of the units that are watched
      this.profiles = new Map();
      this.events = [];             ///< oldest first
      this.series = new Map();      ///< by interface
      this.watched = new Map();     ///< unit: names of its interfaces, null until they are known
      this.single = null;           ///< an interface that is watched by itself
      this.staleSince = null;       ///< seconds of the agent's time
      this.offset = 0;              ///< the agent's time less ours, in seconds
      this.lastEvent = null;
      this.problem = null;          ///< what the last read was refused with
      this.missing = null;          ///< a unit or interface that was asked for and does not exist
      this.listeners = new Set();
      this.unitListeners = new Set();
      this.dueRefresh = null;
      this.stream = new Stream( {
         types: [ ...eventTypes, 'rates', 'dropped' ],
         onEvent: ( type, data ) => this.take( type, data ),
         onUp: () => this.refresh( { all: true } ),
         onState: () => {
            if ( this.stream.state === 'polling' )
               this.refresh( { all: true } );
            this.staleSince = this.stream.state === 'stale' ? this.stream.heard / 1000 + this.offset : null;
            this.changed();
         },
      } );
   }
   start() {
      this.stream.start();
      // What has been missed is asked for at once when the page comes into sight.
      document.addEventListener( 'visibilitychange', () => document.hidden || this.refresh( {} ) );
      this.plan();
   }
   plan() {
      clearTimeout( this.dueRefresh );
      const busy = this.watched.size || this.single || this.units?.some( ( unit ) => unit.state !== 'normal' );
      this.dueRefresh = setTimeout( () => this.refresh( {} ), ( busy ? busyPeriod : quietPeriod ) * 1000 );
   }

   /** The agent's time. */
   now() { return this.staleSince ?? Date.now() / 1000 + this.offset; }
   timeIs( time ) {
      // A virtual clock stands still and jumps; the newest it has said is right.
      if ( time !== null )
         this.offset = time - Date.now() / 1000;
   }

   subscribe( listener ) {
      this.listeners.add( listener );
      return () => this.listeners.delete( listener );
   }
   changed() {
      if ( this.frame )
         return;
      this.frame = requestAnimationFrame( () => {
         this.frame = null;
         for ( const listener of this.listeners )
            listener();
      } );
   }

   /** From now on these units are looked at closely, or this one interface, and no others. */
   watch( units, single = null ) {
      const wanted = new Set( units );
      let news = this.single !== single;
      this.single = single;
      for ( const unit of this.watched.keys() )
         if ( !wanted.has( unit ) )
            this.watched.delete( unit );
      for ( const unit of wanted )
         if ( !this.watched.has( unit ) ) {
            this.watched.set( unit, null );
            news = true;
         }
      this.drop();
      if ( news )
         this.refresh( { curves: true } );
   }
   /** Forgets interfaces that nobody looks at any more. */
   drop() {
      const used = new Set( this.single ? [ this.single ] : [] );
      for ( const names of this.watched.values() )
         for ( const name of names ?? [] )
            used.add( name );
      for ( const map of [ this.series, this.interfaces ] )
         for ( const name of map.keys() )
            if ( !used.has( name ) )
               map.delete( name );
   }
   seriesOf( name ) {
      if ( !this.series.has( name ) )
         this.series.set( name, new Series( span ) );
      return this.series.get( name );
   }
   unit( name ) { return this.units?.find( ( unit ) => unit.name === name ) ?? null; }
   interfacesOf( unit ) {
      return ( this.watched.get( unit ) ?? [] ).map( ( name ) => this.interfaces.get( name ) ).filter( Boolean );
   }

   take( type, data ) {
      if ( type === 'rates' ) {
         this.takeRates( data );
      } else if ( type === 'dropped' ) {
         this.refresh( { all: true } );
      } else {
         this.takeEvent( data );
         this.refreshSoon();
      }
      this.changed();
   }
   takeEvent( event ) {
      if ( this.lastEvent !== null && event.sequence <= this.lastEvent )
         return;
      this.lastEvent = event.sequence;
      this.events.push( event );
      if ( this.events.length > 1.2 * eventsKept )
         this.events.splice( 0, this.events.length - eventsKept );
   }
   takeRates( { time, interfaces } ) {
      const at = seconds( time );
      this.timeIs( at );
      for ( const [ name, series ] of this.series ) {
         const rates = interfaces[ name ];
         if ( !rates )
            continue;
         series.push( at, rates[ 0 ], rates[ 1 ] );
         const known = this.interfaces.get( name );
         if ( known ) {
            known[ 'in-bps' ] = rates[ 0 ];
            known[ 'out-bps' ] = rates[ 1 ];
         }
      }
   }

   /** Many events may come at once; what they change is read once. */
   refreshSoon() {
      if ( this.soon )
         return;
      this.soon = setTimeout( () => {
         this.soon = null;
         this.refresh( {} );
      }, 150 );
   }
   /**
    * Reads what may have changed; all: also what seldom does; curves: also the samples. One at a time: what is asked
    * for meanwhile is done after it, once.
    */
   async refresh( what ) {
      this.wanted = { ...( this.wanted ?? {} ), ...what };
      if ( this.reading )
         return;
      if ( document.hidden && !what.all ) {
         this.plan();
         return;
      }
      this.reading = true;
      try {
         while ( this.wanted ) {
            const wanted = this.wanted;
            this.wanted = null;
            await this.readAll( wanted );
         }
         this.problem = null;
      } catch ( error ) {
         // Nobody answers: the stream finds out as well, and asks for everything when it is back.
         if ( error instanceof Refused )
            this.problem = error.message;
      } finally {
         this.reading = false;
         this.plan();
         this.changed();
      }
   }
   async readAll( { all, curves } ) {
      const [ units, agent ] = await Promise.all( [ read( 'units' ), read( 'agent' ) ] );
      this.timeIs( seconds( agent.clock ) );
      this.agent = agent;
      this.unitsAre( units );
      if ( all ) {
         const [ profiles, recent ] = await Promise.all( [ read( 'profiles' ), optional( 'events/recent?limit=200' ) ] );
         this.profiles = new Map( profiles.map( ( profile ) => [ profile.name, profile ] ) );
         if ( recent )
            this.eventsAre( recent );
      }
      this.changed();
      for ( const unit of [ ...this.watched.keys() ] ) {
         const fresh = this.watched.get( unit ) === null;
         const list = await optional( `interfaces?unit=${encodeURIComponent( unit )}` );
         if ( !this.watched.has( unit ) )
            continue;
         this.watched.set( unit, ( list ?? [] ).map( ( intf ) => intf.name ).sort( byName ) );
         for ( const intf of list ?? [] )
            this.interfaceIs( intf );
         if ( fresh || all || curves )
            this.samplesAre( await optional( `samples?unit=${encodeURIComponent( unit )}&last=${span}` ) );
         this.changed();
      }
      if ( this.single ) {
         const name = this.single;
         const intf = await optional( `interfaces/${encodeURIComponent( name )}` );
         if ( this.single === name ) {
            this.missing = intf ? null : name;
            if ( intf )
               this.interfaceIs( intf );
            if ( all || curves )
               this.samplesAre( await optional( `samples?interface=${encodeURIComponent( name )}&last=${span}` ) );
         }
      }
      this.drop();
   }
   interfaceIs( intf ) {
      this.interfaces.set( intf.name, intf );
      const series = this.seriesOf( intf.name );
      // Without the stream this is what the curve goes on by.
      if ( this.stream.state === 'polling' )
         series.push( this.now(), intf[ 'in-bps' ], intf[ 'out-bps' ] );
   }
   samplesAre( samples ) {
      if ( !samples )
         return;
      const start = seconds( samples.start ), step = samples[ 'step-seconds' ];
      for ( const [ name, rates ] of Object.entries( samples.interfaces ) )
         if ( this.series.has( name ) )
            this.series.get( name ).take( start, step, rates[ 'in-bps' ], rates[ 'out-bps' ] );
   }
   eventsAre( recent ) {
      const known = new Set( this.events.map( ( event ) => event.sequence ) );
      const news = recent.events.filter( ( event ) => !known.has( event.sequence ) );
      this.events = [ ...this.events, ...news ].sort( ( a, b ) => a.sequence - b.sequence ).slice( -eventsKept );
      this.lastEvent = Math.max( this.lastEvent ?? 0, recent.last ?? 0 );
      if ( this.stream.sequence === null )
         this.stream.sequence = recent.last ?? null;
   }
   /** Tells of units that are in another state than before. */
   unitsAre( units ) {
      const before = new Map( ( this.units ?? [] ).map( ( unit ) => [ unit.name, unit.state ] ) );
      this.units = units.sort( ( a, b ) => byName( a.name, b.name ) );
      for ( const unit of units )
         if ( before.has( unit.name ) && before.get( unit.name ) !== unit.state )
            for ( const listener of this.unitListeners )
               listener( unit );
   }
}

/** Null for what does not exist (here, or not yet there). */
export async function optional( path ) {
   try {
      return await read( path );
   } catch ( error ) {
      if ( error instanceof Refused && error.status === 404 )
         return null;
      throw error;
   }
}
