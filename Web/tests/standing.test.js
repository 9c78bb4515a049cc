import assert from 'node:assert/strict';
import { test } from 'node:test';
import { interfaceStanding, linkText } from '../src/standing.js';

const shut = { 'state': 'under-maint', 'shut': true, 'shut-problem': null, 'link-state': 'down', 'reason': { code: 'shut' } };

test( 'a link that could not be shut does not stand as one that is', () => {
   assert.equal( interfaceStanding( shut ).label, 'shut' );
   const { label, level } = interfaceStanding( { ...shut, 'shut-problem': 'no permission', 'link-state': 'up' } );
   assert.deepEqual( [ label, level ], [ 'not shut', 'alarm' ] );
} );

test( 'a link says why it could not be shut', () => {
   assert.equal( linkText( shut ), 'down, shut by us' );
   assert.equal( linkText( { ...shut, 'shut-problem': 'no permission', 'link-state': 'up' } ), 'up, could not be shut: no permission' );
   assert.equal( linkText( { ...shut, 'shut': false, 'link-state': 'up' } ), 'up' );
} );
