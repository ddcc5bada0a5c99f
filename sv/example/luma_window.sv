// 3x3 low-pass and 5x5 extremes of luma, a pixel a clock, from four line buffers.
//
// Pixels come row by row when in_valid and in_ready meet. The result of a pixel leaves two rows and two columns
// later; for the last of them every row is followed by two clocks, and every frame by two rows, without input.
// Borders are reflected without repeating the edge: the taps beyond it are those on the other side of the
// centre. width and height, of 3 at least, hold for the whole frame.
module luma_window #(
    parameter int MAX_WIDTH = 64,
    parameter int BITS = 16  // of coordinates
) (
    input logic clk,
    input logic reset,
    input logic [BITS-1:0] width,
    input logic [BITS-1:0] height,

    input logic in_valid,
    output logic in_ready,
    input logic [7:0] in_y,

    output logic out_valid,
    output logic [BITS-1:0] out_column,
    output logic [BITS-1:0] out_row,
    output logic [7:0] lpf_y,
    output logic [7:0] local_max,
    output logic [7:0] local_min
);
  // What comes in, and the centre of the window, two behind.
  logic [BITS-1:0] column, row, x, y;
  assign x = column - 2;
  assign y = row - 2;
  assign in_ready = column < width && row < height;
  wire step = in_valid || !in_ready;

  // The column of taps under the incoming pixel, the newest row first.
  localparam int AddressBits = $clog2(MAX_WIDTH);
  wire [AddressBits-1:0] address = column[AddressBits-1:0];
  logic [7:0] buffer[4][MAX_WIDTH];
  logic [7:0] tap[5];
  always_comb begin
    tap[0] = in_y;
    for (int i = 0; i < 4; i++) tap[i+1] = buffer[i][address];
  end
  always_ff @(posedge clk) begin
    if (step && column < width) begin
      for (int i = 0; i < 4; i++) buffer[i][address] <= tap[i];
    end
  end

  // Two above to two below the centre, reflected.
  wire first_row = y == 0;
  wire second_row = y == 1;
  wire last_row = y == height - 1;
  wire row_before_last = y == height - 2;
  wire [7:0] above2 = first_row ? tap[0] : second_row ? tap[2] : tap[4];
  wire [7:0] above1 = first_row ? tap[1] : tap[3];
  wire [7:0] below1 = last_row ? tap[3] : tap[1];
  wire [7:0] below2 = last_row ? tap[4] : row_before_last ? tap[2] : tap[0];

  function automatic logic [7:0] larger(input logic [7:0] a, input logic [7:0] b);
    return a > b ? a : b;
  endfunction
  function automatic logic [7:0] smaller(input logic [7:0] a, input logic [7:0] b);
    return a < b ? a : b;
  endfunction

  // Each column is reduced once; five reduced columns, the newest first, make a window.
  logic [9:0] sum[5];
  logic [7:0] most[5], least[5];
  assign sum[0] = {2'b0, above1} + {1'b0, tap[2], 1'b0} + {2'b0, below1};
  assign most[0] = larger(larger(larger(above2, above1), larger(below1, below2)), tap[2]);
  assign least[0] = smaller(smaller(smaller(above2, above1), smaller(below1, below2)), tap[2]);
  always_ff @(posedge clk) begin
    if (step) begin
      for (int i = 1; i < 5; i++) begin
        sum[i] <= sum[i-1];
        most[i] <= most[i-1];
        least[i] <= least[i-1];
      end
    end
  end

  // Two left to two right of the centre, reflected, as numbers of reduced columns.
  wire [2:0] left2 = x == 0 ? 3'd0 : x == 1 ? 3'd2 : 3'd4;
  wire [2:0] left1 = x == 0 ? 3'd1 : 3'd3;
  wire [2:0] right1 = x == width - 1 ? 3'd3 : 3'd1;
  wire [2:0] right2 = x == width - 1 ? 3'd4 : x == width - 2 ? 3'd2 : 3'd0;
  wire [11:0] total = {2'b0, sum[left1]} + {1'b0, sum[2], 1'b0} + {2'b0, sum[right1]};

  always_ff @(posedge clk) begin
    out_valid <= !reset && step && column >= 2 && row >= 2;
    out_column <= x;
    out_row <= y;
    lpf_y <= total[11:4];
    local_max <= larger(larger(larger(most[left2], most[left1]), larger(most[right1], most[right2])), most[2]);
    local_min <= smaller(smaller(smaller(least[left2], least[left1]), smaller(least[right1], least[right2])),
                         least[2]);
  end

  always_ff @(posedge clk) begin
    if (reset) begin
      column <= 0;
      row <= 0;
    end else if (step) begin
      column <= column == width + 1 ? 0 : column + 1;
      if (column == width + 1) row <= row == height + 1 ? 0 : row + 1;
    end
  end
endmodule
