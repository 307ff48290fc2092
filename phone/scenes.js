// The scenes view sets self.KestravaScenes here.
'use strict';
