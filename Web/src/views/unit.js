// One unit: how it stands, its stages, the sum of its traffic, each of its interfaces live, what has happened.

import { h, Rows, shown, text } from '../dom.js';
import * as format from '../format.js';
import { Reading } from '../link.js';
import { Aggregate, Badge, crumbs, Deadline, EventTable, interfaceLink, Matrix, nextShutdown, Panel, Progress, Rates,
   Times, Who } from '../parts.js';
import { stageStanding, unitStanding } from '../standing.js';
import { RecordTable } from './history.js';

const stageRow = ( stage ) => {
   const badge = new Badge();
   const words = h( 'span', { class: 'stage-text' } );
   return {
      element: h( 'li', {}, h( 'strong', {}, stage.name ), ' ', badge.element, ' ', words ),
      update( now ) {
         badge.update( stageStanding( now ) );
         text( words, now.failure ? now.text : '' );
      },
   };
};

export class UnitView {
   constructor( model, name ) {
      this.model = model;
      this.name = name;
      this.title = name;
      this.badge = new Badge();
      this.progress = new Progress();
      this.sentence = h( 'p', { class: 'sentence large' } );
      this.who = new Who();
      this.times = new Times();
      this.rates = new Rates();
      this.deadline = new Deadline();
      this.stages = h( 'ol', { 'class': 'stages', 'aria-label': 'stages' } );
      this.stageRows = new Rows( this.stages, ( stage ) => stage.name, stageRow );
      this.aggregate = new Aggregate( model, name, true );
      this.matrix = new Matrix();
      this.grid = h( 'div', { class: 'grid' } );
      this.panels = new Rows( this.grid, ( intf ) => intf.name, ( intf ) => new Panel( model, intf.name ) );
      this.violating = h( 'ul', { class: 'violating' } );
      this.violatingRows = new Rows( this.violating, ( intf ) => intf.name, violation );
      this.violatingCount = h( 'p' );
      this.violations = h( 'section', { 'aria-labelledby': 'violations', 'class': 'violations' },
         h( 'h2', { id: 'violations' }, 'Violations' ), this.violating, this.violatingCount );
      this.events = new EventTable( { caption: `Events of ${name}` } );
      this.records = new RecordTable( { caption: `Past maintenances of ${name}`, unit: false } );
      this.past = new Reading( {
         path: () => `history?unit=${encodeURIComponent( name )}&limit=10`,
         onBody: ( records ) => this.records.update( records ?? [] ),
      } );
      this.none = h( 'p', { class: 'none' } );
      this.body = h( 'div', {},
         h( 'div', { class: 'summary' },
            h( 'div', { class: 'about' }, this.progress.element, this.sentence, this.who.element, this.times.element,
               this.deadline.element, this.stages ),
            h( 'section', { 'class': 'seen', 'aria-labelledby': 'sum' },
               h( 'h2', { id: 'sum' }, 'All interfaces together' ), this.aggregate.element, this.rates.element ) ),
         this.violations,
         h( 'section', { 'aria-labelledby': 'interfaces' }, h( 'h2', { id: 'interfaces' }, 'Interfaces' ), this.matrix.element, this.grid ),
         h( 'div', { class: 'columns' },
            h( 'section', { 'aria-labelledby': 'events' }, h( 'h2', { id: 'events' }, 'Events' ), this.events.element ),
            h( 'section', { 'aria-labelledby': 'past' }, h( 'h2', { id: 'past' }, 'Past maintenances' ), this.records.element ) ) );
      this.element = h( 'div', { class: 'view' }, crumbs( [ 'Units', '#/' ], [ name ] ),
         h( 'div', { class: 'head' }, h( 'h1', {}, name ), this.badge.element ), this.none, this.body );
      model.watch( [ name ] );
      this.state = null;
   }
   update() {
      const { model, name } = this;
      const unit = model.unit( name );
      shown( this.none, !unit );
      shown( this.body, Boolean( unit ) );
      text( this.none, model.units ? `There is no unit ${name}.` : 'Asking the agent …' );
      if ( !unit )
         return;
      if ( this.state !== unit.state ) {
         this.state = unit.state;
         this.past.ask();
      }
      const interfaces = model.interfacesOf( name );
      this.badge.update( unitStanding( unit ) );
      this.progress.update( unit );
      text( this.sentence, unit.sentence ?? '' );
      this.who.update( unit, model.now() );
      this.times.update( unit, model.now() );
      this.rates.update( ...this.aggregate.rates( unit ) );
      this.deadline.update( nextShutdown( interfaces ), model.now(), true );
      shown( this.stages, unit.stages?.length > 0 );
      this.stageRows.update( unit.stages ?? [] );
      this.aggregate.update();
      this.matrix.update( interfaces );
      shown( this.matrix.element, interfaces.length > 8 );
      this.panels.update( interfaces );
      const violating = new Set( unit.violating );
      shown( this.violations, violating.size > 0 || unit[ 'total-violations' ] > 0 );
      this.violatingRows.update( interfaces.filter( ( intf ) => violating.has( intf.name ) ) );
      text( this.violatingCount, `${unit[ 'total-violations' ]} samples above the threshold in this maintenance` );
      this.events.update( model.happened.rows( ( event ) => event.subject === name || event.units?.includes( name ), 30 ),
         model.now() );
   }
   remove() {
      this.past.stop();
      this.panels.remove();
      this.aggregate.remove();
   }
}

function violation( intf ) {
   const words = h( 'span' );
   return {
      element: h( 'li', {}, h( 'span', { 'class': 'sign alarm', 'aria-hidden': 'true' }, '! ' ),
         h( 'a', { href: interfaceLink( intf.name ) }, intf.name ), ' ', words ),
      update: ( now ) => text( words,
         `${now.reason?.text ?? ''} (in ${format.rate( now[ 'in-bps' ] )}, out ${format.rate( now[ 'out-bps' ] )})` ),
   };
}
