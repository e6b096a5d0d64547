{
  "name": "Extract and load",
  "attributes": [
    {"name": "Owner", "rows": [[null]]},
    {"name": "Steps", "columns": 4, "rows": [
      ["1", "extract", "Read the source", "600"],
      ["2", "load", "Write the target", "600"]
    ]}
  ],
  "uses": [
    {"type": "Database", "source": {"type": "postgresql", "name": "%%SALES_DSN%%"}}
  ]
}
