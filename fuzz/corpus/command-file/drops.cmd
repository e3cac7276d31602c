[Dravik]
ToolArcPrecValue=
DvImportFile=""
DvExportFile="
=x
DvLoadDefaults=yes
ToolCropY0=nan
