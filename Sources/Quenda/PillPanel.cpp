// PillPanel
