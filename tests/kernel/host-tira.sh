#!/bin/sh
# The Tira at the far end of the machine's FTDI port; each command it gets is a
# line of $LANE_OUT/tira.log.
exec "$LANE_BUILD/tests/tira-emulator" --connect "$LANE_OUT/tira.sock" --log "$LANE_OUT/tira.log"
