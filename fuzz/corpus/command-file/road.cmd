[Dravik]
DvLoadDefaults=true
ToolArcPrecValue=64
