// Random frames through luma_window and the model, compared by the scoreboard.
//
//   +frames=N +seed=S      how many, and which
//   +fault_x=X +fault_y=Y  a wrong bit in lpf_y of the second frame, or in the stage of
//   +fault_stage=NAME      that name: local_max, local_min
//   +wrong_size            the model is given one line that is too short, and then the right one
module tb;
  import ee_dpi_pkg::*;

  localparam int MaxWidth = 64;

  logic clk = 0, reset = 1, in_valid = 0, in_ready, out_valid;
  logic [15:0] width = 3, height = 3, out_column, out_row;
  logic [7:0] in_y = 0, lpf_y, local_max, local_min;
  luma_window #(.MAX_WIDTH(MaxWidth)) design_under_test (.*);
  always #1 clk = ~clk;

  ee_model model;
  ee_scoreboard scoreboard;
  int frame = 0, lines_seen = 0;

  // ---- The hardware's lines, stage by stage, go to the scoreboard.
  integer seen_lpf[MaxWidth], seen_max[MaxWidth], seen_min[MaxWidth];
  string fault_stage = "lpf_y";
  int fault_x = -1, fault_y = -1;

  int fault_bit;

  always @(negedge clk) begin
    if (out_valid) begin
      fault_bit = 0;
      if (frame == 2 && int'(out_column) == fault_x && int'(out_row) == fault_y) fault_bit = 4;
      seen_lpf[int'(out_column)] = {24'b0, lpf_y} ^ (fault_stage == "lpf_y" ? fault_bit : 0);
      seen_max[int'(out_column)] = {24'b0, local_max} ^ (fault_stage == "local_max" ? fault_bit : 0);
      seen_min[int'(out_column)] = {24'b0, local_min} ^ (fault_stage == "local_min" ? fault_bit : 0);
      if (out_column == width - 1) take_lines();
    end
  end

  task automatic take_lines();
    ee_hw_line_t lpf, max, min;
    lpf = new[int'(width)];
    max = new[int'(width)];
    min = new[int'(width)];
    foreach (lpf[x]) begin
      lpf[x] = seen_lpf[x];
      max[x] = seen_max[x];
      min[x] = seen_min[x];
    end
    scoreboard.take(frame, "lpf_y", int'(out_row), lpf);
    scoreboard.take(frame, "local_max", int'(out_row), max);
    scoreboard.take(frame, "local_min", int'(out_row), min);
    lines_seen++;
  endtask

  // ---- The same pixels to both.
  int grey[MaxWidth];  // a line of chroma without colour, as a fixed array
  int status;

  task automatic drive_frame();
    ee_line_t line;
    width = 16'($urandom_range(MaxWidth, 3));
    height = 16'($urandom_range(20, 3));
    lines_seen = 0;
    frame = model.begin_frame(int'(width), int'(height));
    for (int row = 0; row < int'(height); row++) begin
      line = new[int'(width)];
      foreach (line[i]) line[i] = $urandom_range(3) == 0 ? 255 * $urandom_range(1) : $urandom_range(255);
      if (row == 1 && frame == 1 && $test$plusargs("wrong_size") != 0) begin
        status = cmodel_dpi_push(model.handle, "cb", grey, 1);
      end
      status = model.push("y", line);
      status = cmodel_dpi_push(model.handle, "cb", grey, (int'(width) + 1) / 2);
      status = cmodel_dpi_push(model.handle, "cr", grey, (int'(width) + 1) / 2);
      for (int x = 0; x < int'(width); x++) begin
        in_valid = 1;
        in_y = 8'(line[x]);
        do @(posedge clk); while (!in_ready);
        @(negedge clk);
        in_valid = 0;
        if ($urandom_range(9) == 0) @(negedge clk);
      end
    end
    wait (lines_seen == int'(height));
    @(negedge clk);
  endtask

  int frames = 20, seed = 1;
  initial begin
    void'($value$plusargs("frames=%d", frames));
    void'($value$plusargs("seed=%d", seed));
    void'($value$plusargs("fault_stage=%s", fault_stage));
    void'($value$plusargs("fault_x=%d", fault_x));
    void'($value$plusargs("fault_y=%d", fault_y));
    void'($urandom(seed));
    foreach (grey[i]) grey[i] = 128;
    model = new("pre_ee");
    $display("model %s", model.version());
    status = model.set("reg_ee_texture_mode", 0);  // mode 1 needs fused luma
    scoreboard = new(model);
    scoreboard.watch("local_max");
    scoreboard.watch("local_min");
    scoreboard.watch("lpf_y");
    repeat (2) @(negedge clk);
    reset = 0;
    repeat (frames) drive_frame();
    if (scoreboard.report()) $display("PASSED");
    else $display("FAILED");
    model.close();
    $finish;
  end
endmodule
