// One interface: live, and as far back as the agent remembers.

import { optional } from '../model.js';
import { Curve } from '../curve.js';
import { attribute, h, shown, text } from '../dom.js';
import * as format from '../format.js';
import { crumbs, EventTable, marksOf, Panel, profileText, unitLink } from '../parts.js';
import { Series } from '../series.js';

const ranges = [ [ 'hour', 3600 ], [ 'day', 86400 ], [ 'week', 7 * 86400 ] ];
/** Rows of the table beside the curve. */
const mostRows = 24;
const period = 30;

export class InterfaceView {
   constructor( model, name ) {
      this.model = model;
      this.name = name;
      this.title = name;
      this.panel = new Panel( model, name, true );
      this.facts = h( 'dl', { class: 'facts' } );
      this.events = new EventTable( { caption: `Events of ${name}` } );
      this.past = new Series( Infinity );
      this.range = ranges[ 0 ];
      this.pastCurve = new Curve( { name: `${name}, further back`, tall: true, facts: () => this.pastFacts() } );
      this.buttons = ranges.map( ( range ) => h( 'button', { type: 'button', onclick: () => this.rangeIs( range ) },
         `last ${range[ 0 ]}` ) );
      this.values = h( 'tbody' );
      this.none = h( 'p', { class: 'none' } );
      this.body = h( 'div', {}, this.panel.element, this.facts,
         h( 'section', { 'aria-labelledby': 'past' }, h( 'h2', { id: 'past' }, 'Further back' ),
            h( 'div', { 'class': 'choice', 'role': 'group', 'aria-label': 'How far back' }, this.buttons ), this.pastCurve.element,
            h( 'details', {}, h( 'summary', {}, 'Values as a table' ),
               h( 'table', { class: 'values' }, h( 'caption', { class: 'unseen' }, `Rates of ${name}` ),
                  h( 'thead', {}, h( 'tr', {}, [ 'Time (UTC)', 'In', 'Out' ].map( ( words ) => h( 'th', { scope: 'col' }, words ) ) ) ),
                  this.values ) ) ),
         h( 'section', { 'aria-labelledby': 'events' }, h( 'h2', { id: 'events' }, 'Events' ), this.events.element ) );
      this.element = h( 'div', { class: 'view' }, this.path = crumbs( [ 'Units', '#/' ], [ name ] ),
         h( 'div', { class: 'head' }, h( 'h1', {}, name ) ), this.none, this.body );
      model.watch( [], name );
      this.rangeIs( ranges[ 0 ] );
      this.timer = setInterval( () => document.hidden || this.read(), period * 1000 );
   }
   update() {
      const { model, name } = this;
      const intf = model.interfaces.get( name );
      shown( this.none, !intf );
      shown( this.body, Boolean( intf ) );
      text( this.none, model.missing === name ? `There is no interface ${name}.` : 'Asking the agent …' );
      if ( !intf )
         return;
      this.panel.update();
      this.factsAre( intf );
      this.events.update( model.events.filter( ( event ) => event.subject === name ).slice( -50 ) );
   }
   factsAre( intf ) {
      const profile = this.model.profiles.get( intf.profile );
      const rows = [
         [ 'Units', intf.units.map( ( unit ) => h( 'a', { href: unitLink( unit ) }, unit ) ) ],
         [ 'Kind', intf.kind ],
         [ 'Link', intf.shut ? `${intf[ 'link-state' ]}, shut by us` : intf[ 'link-state' ] ],
         [ 'Profile', profile ? profileText( profile ) : intf.profile ?? '–' ],
         [ 'Drift', intf.drift ],
      ].filter( ( [ , value ] ) => value && value.length );
      const key = JSON.stringify( [ intf.units, ...rows.slice( 1 ) ] );
      if ( key === this.key )
         return;
      this.key = key;
      this.facts.replaceChildren( ...rows.flatMap( ( [ words, value ] ) => [ h( 'dt', {}, words ),
         h( 'dd', {}, [ value ].flat().flatMap( ( each, i ) => ( i ? [ ', ', each ] : [ each ] ) ) ) ] ) );
   }
   rangeIs( range ) {
      this.range = range;
      this.buttons.forEach( ( button, i ) => attribute( button, 'aria-pressed', String( ranges[ i ] === range ) ) );
      this.read();
   }
   async read() {
      const { range } = this;
      let samples = null;
      try {
         samples = await optional( `samples?interface=${encodeURIComponent( this.name )}&last=${range[ 1 ]}` );
      } catch {
         return;
      }
      if ( range !== this.range )
         return;
      this.past.clear();
      const own = samples?.interfaces[ this.name ];
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
            series: this.past,
         marks: marksOf( this.model, this.name ),
      };
   }
   remove() {
      clearInterval( this.timer );
      this.panel.remove();
      this.pastCurve.remove();
   }
}
