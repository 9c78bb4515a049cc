// What is known of the agent, and the reads that keep it true. Views read it and are told when it has changed.

import { Filling } from './filling.js';
import { byName, own, seconds } from './format.js';
import { Happened } from './happened.js';
import { optional, read, Refused, Stream } from './link.js';
import { Story } from './marks.js';
import { Series, sumUp } from './series.js';

const eventTypes = [ 'unit', 'interface', 'profile', 'agent' ];
/** Events that are kept here, and that are asked for at first. */
const eventsKept = 500, eventsAsked = 200;
/** Seconds that are kept of each curve, and that a live one shows. */
export const span = 600, recent = 300;
/** Seconds between two samples of an interface that nothing happens to. */
const samplePeriod = 5;
const busyPeriod = 5, quietPeriod = 15;
/** Seconds until what events have changed is read: at least, so many times as long as the last read took, at most. */
const soonest = 0.15, restful = 3, latest = 5;

const concernsProfiles = ( { type, what } ) => type === 'profile' || what === 'started' || what === 'configuration-taken';

export class Model {
   constructor() {
      this.agent = null;
      this.units = null;
      this.interfaces = new Map();  ///< by name: those of the units that are watched
      this.profiles = new Map();
      this.profilesDue = true;      ///< they may be others than those that are known
      this.happened = new Happened( eventsKept );
      this.series = new Map();      ///< by interface
      this.stories = new Map();     ///< by interface
      this.sums = new Map();        ///< by unit: { series, due: it has to be summed up anew }
      this.inSight = new Set();     ///< names of the interfaces whose curves are
      this.watched = new Map();     ///< unit: names of its interfaces, null until they are known
      this.single = null;           ///< an interface that is watched by itself
      this.staleSince = null;       ///< seconds of the agent's time
      this.told = -Infinity;        ///< the agent's time, as it has said the last time
      this.offset = 0;              ///< the agent's time less ours, in seconds
      this.eventsRead = false;      ///< those from before the stream
      this.refused = [];            ///< what the last reads were refused with
      this.missing = null;          ///< a unit or interface that was asked for and does not exist
      this.listeners = new Set();
      this.unitListeners = new Set();
      this.dueRefresh = null;
      this.took = 0;                ///< seconds, by the last reads
      this.filling = new Filling( {
         read, span, inSight: this.inSight, now: () => this.now(),
         take: ( samples ) => this.samplesAre( samples ),
      } );
      this.stream = new Stream( {
         types: [ ...eventTypes, 'rates', 'dropped' ],
         onEvent: ( type, data ) => this.take( type, data ),
         onUp: ( resumed ) => {
            // What has happened between a read before and now is told by nobody.
            this.eventsRead &&= resumed;
            this.refreshAll();
         },
         onSetBack: ( seconds ) => { this.offset += seconds; },
         onState: () => {
            if ( this.stream.state === 'polling' )
               this.refreshAll();
            const { state, heard } = this.stream;
            this.staleSince = state === 'stale' ? heard / 1000 + this.offset : null;
            this.changed();
         },
      } );
   }
   start() {
      this.stream.start();
      // What has been missed is asked for at once when the page comes into sight.
      document.addEventListener( 'visibilitychange', () => document.hidden || this.refresh() );
      this.plan();
   }
   plan() {
      clearTimeout( this.dueRefresh );
      const busy = this.watched.size || this.single || this.units?.some( ( unit ) => unit.state !== 'normal' );
      this.dueRefresh = setTimeout( () => this.refresh(), ( busy ? busyPeriod : quietPeriod ) * 1000 );
   }

   get events() { return this.happened.events; }
   /** Since when reads are not answered although the stream goes on, in seconds of the agent's time; null: they are. */
   get lateSince() { return this.stream.state === 'late' ? this.stream.answered / 1000 + this.offset : null; }
   get problems() { return [ ...this.refused, this.filling.problem ].filter( Boolean ); }
   /** The agent's time. */
   now() { return this.staleSince ?? Date.now() / 1000 + this.offset; }
   timeIs( time ) {
      // A virtual clock stands still and jumps; the newest it has said is right.
      if ( time === null )
         return;
      this.offset = time - Date.now() / 1000;
      // What happened before its clock was set back has other times now.
      if ( time < this.told - samplePeriod )
         this.stories.clear();
      this.told = time;
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
         if ( !wanted.has( unit ) ) {
            this.watched.delete( unit );
            this.sums.delete( unit );
         }
      for ( const unit of wanted )
         if ( !this.watched.has( unit ) ) {
            this.watched.set( unit, null );
            news = true;
         }
      this.drop();
      if ( news )
         this.refresh();
   }
   /** Forgets interfaces that nobody looks at any more. */
   drop() {
      const used = new Set( this.single ? [ this.single ] : [] );
      for ( const names of this.watched.values() )
         for ( const name of names ?? [] )
            used.add( name );
      for ( const map of [ this.series, this.stories, this.interfaces, this.filling.wanted ] )
         for ( const name of map.keys() )
            if ( !used.has( name ) )
               map.delete( name );
   }
   seriesOf( name ) {
      if ( !this.series.has( name ) ) {
         this.series.set( name, new Series( span, samplePeriod ) );
         this.filling.want( name );
      }
      return this.series.get( name );
   }
   storyOf( name ) {
      if ( !this.stories.has( name ) )
         this.stories.set( name, new Story( name ) );
      return this.stories.get( name );
   }
   /** What the interfaces of a unit carry together. While samples of them are missing it goes on as it was. */
   sumOf( unit ) {
      if ( !this.sums.has( unit ) )
         this.sums.set( unit, { series: new Series( span, samplePeriod ), due: true } );
      const sum = this.sums.get( unit );
      const names = this.watched.get( unit ) ?? [];
      if ( sum.due && names.length && !names.some( ( name ) => this.filling.wanted.has( name ) ) ) {
         sumUp( sum.series, names.map( ( name ) => this.series.get( name ) ).filter( Boolean ) );
         sum.due = false;
      }
      return sum.series;
   }
   sumsAreDue() {
      for ( const sum of this.sums.values() )
         sum.due = true;
   }
   unit( name ) { return this.units?.find( ( unit ) => unit.name === name ) ?? null; }
   interfacesOf( unit ) {
      return ( this.watched.get( unit ) ?? [] ).map( ( name ) => this.interfaces.get( name ) ).filter( Boolean );
   }

   take( type, data ) {
      if ( type === 'rates' ) {
         this.takeRates( data );
      } else if ( type === 'dropped' ) {
         // A place that the agent does not know is one in another log.
         if ( !data.dropped )
            this.happened.begunAnew( data.next );
         this.refreshAll();
      } else {
         this.happened.take( data );
         this.profilesDue ||= concernsProfiles( data );
         this.refreshSoon();
      }
      this.changed();
   }
   /** An interface that is not among them is not known: its curve ends until it is again. */
   takeRates( { time, interfaces } ) {
      const at = seconds( time );
      this.timeIs( at );
      const of = ( name ) => own( interfaces, name ) ?? [ null, null ];
      for ( const name of this.series.keys() ) {
         const [ inBps, outBps ] = of( name );
         this.ratesAre( name, at, inBps, outBps );
         const known = this.interfaces.get( name );
         if ( known ) {
            known[ 'in-bps' ] = inBps;
            known[ 'out-bps' ] = outBps;
         }
      }
      for ( const [ unit, { series } ] of this.sums ) {
         let ins = null, outs = null;
         for ( const name of this.watched.get( unit ) ?? [] ) {
            const [ inBps, outBps ] = of( name );
            ins = inBps === null ? ins : ( ins ?? 0 ) + inBps;
            outs = outBps === null ? outs : ( outs ?? 0 ) + outBps;
         }
         series.push( at, ins, outs );
      }
   }
   /** What has not been heard of for some time is asked for. */
   ratesAre( name, at, inBps, outBps ) {
      const series = this.seriesOf( name );
      const { last } = series;
      if ( series.push( at, inBps, outBps ) )
         this.filling.want( name, last < at ? last : -Infinity );
   }

   /** Many events may come at once; what they change is read once, and no more often than it can be read. */
   refreshSoon() {
      this.soon ??= setTimeout( () => {
         this.soon = null;
         this.refresh();
      }, 1000 * Math.min( Math.max( soonest, restful * this.took ), latest ) );
   }
   /**
    * Reads what may have changed, and what seldom does if it is due. One at a time: what is asked for meanwhile is done
    * after it, once.
    */
   async refresh() {
      this.wanted = true;
      if ( this.reading )
         return;
      if ( document.hidden ) {
         this.plan();
         return;
      }
      this.reading = true;
      const begun = performance.now();
      try {
         while ( this.wanted ) {
            this.wanted = false;
            await this.readAll();
         }
         this.filling.run();
      } catch {
         // Nobody answers: the stream finds out as well, and asks for everything when it is back.
      } finally {
         this.took = ( performance.now() - begun ) / 1000;
         this.reading = false;
         this.plan();
         this.changed();
      }
   }
   refreshAll() {
      this.profilesDue = true;
      return this.refresh();
   }
   async readAll() {
      const refused = [];
      // What is refused of one thing is no reason to know nothing of the others.
      const part = async ( of, work ) => {
         try {
            await work();
         } catch ( error ) {
            if ( !( error instanceof Refused ) )
               throw error;
            refused.push( `${of}: ${error.message}` );
         }
         this.changed();
      };
      await Promise.all( [
         part( 'units', async () => {
            const [ units, agent ] = await Promise.all( [ read( 'units' ), read( 'agent' ) ] );
            this.timeIs( seconds( agent.clock ) );
            this.agent = agent;
            this.unitsAre( units );
         } ),
         part( 'events', () => this.readEvents() ),
         this.profilesDue && part( 'profiles', () => this.readProfiles() ),
      ] );
      for ( const unit of [ ...this.watched.keys() ] )
         await part( unit, () => this.readUnit( unit ) );
      if ( this.single )
         await part( this.single, () => this.readSingle( this.single ) );
      this.drop();
      this.refused = refused;
   }
   /** They are due until they have been read. */
   async readProfiles() {
      this.profilesDue = false;
      try {
         this.profiles = new Map( ( await read( 'profiles' ) ).map( ( profile ) => [ profile.name, profile ] ) );
      } catch ( error ) {
         this.profilesDue = true;
         throw error;
      }
   }
   async readUnit( unit ) {
      const list = await optional( `interfaces?unit=${encodeURIComponent( unit )}` ) ?? [];
      if ( !this.watched.has( unit ) )
         return;
      const names = list.map( ( intf ) => intf.name ).sort( byName );
      if ( names.join( '\n' ) !== this.watched.get( unit )?.join( '\n' ) )
         this.sumsAreDue();
      this.watched.set( unit, names );
      for ( const intf of list )
         this.interfaceIs( intf );
   }
   async readSingle( name ) {
      const intf = await optional( `interfaces/${encodeURIComponent( name )}` );
      if ( this.single !== name )
         return;
      this.missing = intf ? null : name;
      if ( intf )
         this.interfaceIs( intf );
      else
         this.interfaces.delete( name );
   }
   interfaceIs( intf ) {
      this.interfaces.set( intf.name, intf );
      this.storyOf( intf.name ).take( intf );
      this.seriesOf( intf.name );
      // Without the stream this is what the curve goes on by.
      if ( this.stream.state === 'polling' ) {
         this.ratesAre( intf.name, this.now(), intf[ 'in-bps' ], intf[ 'out-bps' ] );
         this.sumsAreDue();
      }
   }
   samplesAre( samples ) {
      const start = seconds( samples.start ), step = samples[ 'step-seconds' ];
      for ( const [ name, rates ] of Object.entries( samples.interfaces ) )
         this.series.get( name )?.take( start, step, rates[ 'in-bps' ], rates[ 'out-bps' ] );
      this.sumsAreDue();
      this.changed();
   }
   /** What has happened before the stream began, and while there is none; else it tells everything itself. */
   async readEvents() {
      const { happened, stream } = this;
      const polled = !stream.open;
      if ( this.eventsRead && !polled )
         return;
      const { last } = happened;
      const recent = await optional( `events/recent?limit=${eventsAsked}${this.eventsRead && last !== null ? `&after=${last}` : ''}` );
      if ( !recent )
         return;
      if ( this.eventsRead && polled && !stream.open && recent.last < last ) {
         happened.begunAnew( 1 );
         this.eventsRead = false;
         await this.readEvents();
         return;
      }
      // Those from before the first read are in what it has brought.
      this.profilesDue ||= this.eventsRead && recent.events.some( concernsProfiles );
      this.eventsRead = true;
      for ( const event of recent.events )
         happened.take( event );
      stream.sequence ??= recent.last;
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
