"""The factory harness: a console client for the tool over any transport
(open_board), plans, a runner and reports."""
