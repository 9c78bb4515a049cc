// One interface: live, and as far back as the agent remembers.

import { Curve } from '../curve.js';
import { attribute, h, shown, text } from '../dom.js';
import * as format from '../format.js';
import { Reading } from '../link.js';
import { crumbs, EventTable, Facts, Panel, profileText, unitLink } from '../parts.js';
import { Series } from '../series.js';
import { linkText } from '../standing.js';

/** Names of the spans that can be looked at, their seconds, and after how many seconds each is read anew. */
const ranges = [ [ 'hour', 3600, 30 ], [ 'day', 86400, 60 ], [ 'week', 7 * 86400, 300 ] ];
/** Rows of the table beside the curve. */
const mostRows = 24;

export class InterfaceView {
   constructor( model, name ) {
      this.model = model;
      this.name = name;
      this.title = name;
      this.panel = new Panel( model, name, true );
      this.facts = new Facts();
      this.events = new EventTable( { caption: `Events of ${name}`, of: name } );
      this.past = new Series( Infinity );
      this.range = ranges[ 0 ];
      this.pastCurve = new Curve( { name: `${name}, further back`, tall: true, facts: () => this.pastFacts() } );
      this.buttons = ranges.map( ( range ) => h( 'button', { type: 'button', onclick: () => this.rangeIs( range ) },
         `last ${range[ 0 ]}` ) );
      this.values = h( 'tbody' );
      this.none = h( 'p', { class: 'none' } );
      this.live = h( 'div', { class: 'live' }, this.panel.element, this.facts.element );
      this.further = h( 'section', { 'aria-labelledby': 'past' }, h( 'h2', { id: 'past' }, 'Further back' ),
         h( 'div', { 'class': 'choice', 'role': 'group', 'aria-label': 'How far back' }, this.buttons ), this.pastCurve.element,
         h( 'details', {}, h( 'summary', {}, 'Values as a table' ),
            h( 'table', { class: 'values' }, h( 'caption', { class: 'unseen' }, `Rates of ${name}` ),
               h( 'thead', {}, h( 'tr', {}, [ 'Time (UTC)', 'In', 'Out' ].map( ( words ) => h( 'th', { scope: 'col' }, words ) ) ) ),
               this.values ) ) );
      this.body = h( 'div', {}, this.live, this.further,
         h( 'section', { 'aria-labelledby': 'events' }, h( 'h2', { id: 'events' }, 'Events' ), this.events.element ) );
      this.element = h( 'div', { class: 'view' }, crumbs( [ 'Units', '#/' ], [ name ] ),
         h( 'div', { class: 'head' }, h( 'h1', {}, name ) ), this.none, this.body );
      model.watch( [], name );
      this.reading = new Reading( {
         path: () => `samples?interface=${encodeURIComponent( name )}&last=${this.range[ 1 ]}`,
         onBody: ( samples ) => this.samplesAre( samples ),
      } );
      this.rangeIs( ranges[ 0 ] );
      this.timer = setInterval( () => this.tick(), 1000 );
   }
   update() {
      const { model, name } = this;
      const { happened } = model;
      const story = model.storyOf( name );
      const own = ( event ) => story.isIn( event );
      const intf = model.interfaces.get( name );
      const missing = model.missing === name;
      // Of one that has gone there is still what it has carried, and what has happened to it.
      const known = this.past.length > 0 || happened.events.some( own );
      shown( this.none, !intf );
      shown( this.live, Boolean( intf ) );
      shown( this.body, Boolean( intf ) || ( missing && known ) );
      text( this.none, !missing ? 'Asking the agent …' : known ? `There is no interface ${name} any more.`
                                                               : `There is no interface ${name}.` );
      if ( intf ) {
         this.panel.update();
         this.factsAre( intf );
      }
      this.events.update( happened.rows( own, 50 ), model.now() );
   }
   factsAre( intf ) {
      const profile = this.model.profiles.get( intf.profile );
      this.facts.update( [
         [ 'Units', intf.units.map( ( unit ) => [ unit, unitLink( unit ) ] ) ],
         [ 'Kind', intf.kind ],
         [ 'Link', linkText( intf ) ],
         [ 'Profile', profile ? profileText( profile ) : intf.profile ?? '–' ],
         [ 'Drift', intf.drift ],
      ].filter( ( [ , value ] ) => value && value.length ) );
   }
   rangeIs( range ) {
      this.range = range;
      this.buttons.forEach( ( button, i ) => attribute( button, 'aria-pressed', String( ranges[ i ] === range ) ) );
      this.read();
   }
   tick() {
      if ( !document.hidden && performance.now() > this.readAt + 1000 * this.range[ 2 ] )
         this.read();
   }
   read() {
      this.readAt = performance.now();
      this.reading.ask();
   }
   samplesAre( samples ) {
      this.past.clear();
      const own = samples && format.own( samples.interfaces, this.name );
      if ( own )
         this.past.take( format.seconds( samples.start ), samples[ 'step-seconds' ], own[ 'in-bps' ], own[ 'out-bps' ] );
      this.pastCurve.dirtyIs();
      this.valuesAre();
   }
   valuesAre() {
      const { past } = this;
      const step = Math.max( 1, Math.ceil( past.length / mostRows ) );
      const rows = [];
      for ( let i = past.length - 1; i >= 0; i -= step )
         rows.push( h( 'tr', {}, h( 'td', {}, format.day( past.times[ i ] ) ), h( 'td', {}, format.rate( past.ins[ i ] ) ),
            h( 'td', {}, format.rate( past.outs[ i ] ) ) ) );
      this.values.replaceChildren( ...rows );
   }
   pastFacts() {
      const now = this.model.now();
      return {
         from: now - this.range[ 1 ], to: now, now, deadline: null, threshold: this.panel.threshold(), loadInterval: null,
         series: this.past, marks: this.model.storyOf( this.name ).marks( this.model.events ),
      };
   }
   remove() {
      clearInterval( this.timer );
      this.reading.stop();
      this.panel.remove();
      this.pastCurve.remove();
   }
}
