// That the pictures of the README are of the page as it is. They are not compared themselves, which fonts would decide, but
// what is on the page in the story that they show.

import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { test } from 'node:test';
import { play, told } from './pictures.js';

test( 'the pictures show the page as it is', async () => {
   await play( [ 'light' ], ( page, scheme, outline ) => assert.deepEqual( outline.split( '\n' ),
      readFileSync( told, 'utf8' ).split( '\n' ), 'take them anew and look at them: node Web/tests/screenshots.js BUILD-FOLDER' ) );
} );
